// Files that a tool writes, with every failure reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/tool_error.hpp"
#include "common/unique_handle.hpp"

namespace tallow::tools {

// Another process has the file open in a way that keeps us out.
class FileInUse : public ToolError {
 public:
  using ToolError::ToolError;
};

// A file open for writing. Paths are UTF-8. All failures are ToolErrors that name the file.
class OutputFile {
 public:
  // Creates the file, or empties it if it exists.
  static OutputFile create(const std::string& path);
  // Opens the file with its content, or creates it if it does not exist.
  static OutputFile openOrCreate(const std::string& path);
  // Opens a file that must exist, to cut it back and continue it.
  static OutputFile openExisting(const std::string& path);
  // The same. None if there is no such file.
  static std::optional<OutputFile> tryOpenExisting(const std::string& path);
  // Standard output. flushToDisk() does nothing then.
  static OutputFile standardOutput();

  void write(std::span<const std::byte> bytes);
  // Forces the written data to the disk.
  void flushToDisk();
  std::uint64_t size() const;
  // Whether it is a file on a disk, and not a device or a pipe.
  bool isOrdinary() const noexcept;
  // Cuts the file to `length` bytes and continues to write there.
  void cutTo(std::uint64_t length);

 private:
  OutputFile(std::string name, HANDLE file, bool owned);
  HANDLE get() const noexcept { return owned_ ? owned_.get() : standard_; }

  std::string name_;
  UniqueFileHandle owned_;
  HANDLE standard_ = INVALID_HANDLE_VALUE;
};

// Renames in one step. A file that already has the new name is replaced.
void renameFile(const std::string& from, const std::string& to);

// Deletes a file. It need not exist.
void removeFile(const std::string& path);

// Replaces the file in one step: a reader sees the old content or the new, also after a crash.
// Writes `path`.tmp, forces it to the disk and renames it.
void replaceFile(const std::string& path, std::string_view content);

// The whole file. Throws ToolError if it cannot be read or is larger than `limit` bytes.
std::string readTextFile(const std::string& path, std::uint64_t limit);

}  // namespace tallow::tools
