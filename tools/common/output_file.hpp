// Files that a tool writes, with every failure told.
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

/// Another process has the file open in a way that keeps us out of it.
class FileInUse : public ToolError {
 public:
  using ToolError::ToolError;
};

/// A file open for writing. Paths are UTF-8. All failures are ToolErrors that name the file.
class OutputFile {
 public:
  /// Creates the file, or empties it when it is there.
  static OutputFile create(const std::string& path);
  /// Creates the file unless it is there; its content stays.
  static OutputFile openOrCreate(const std::string& path);
  /// Opens a file that must be there, to cut it back and go on.
  static OutputFile openExisting(const std::string& path);
  /// The same; none when there is no such file.
  static std::optional<OutputFile> tryOpenExisting(const std::string& path);
  /// Writes to standard output; flush does nothing then.
  static OutputFile standardOutput();

  void write(std::span<const std::byte> bytes);
  /// Forces what was written to disk.
  void flushToDisk();
  std::uint64_t size() const;
  /// A file on a disk, neither a device nor a pipe.
  bool isOrdinary() const noexcept;
  /// Cuts the file to `length` bytes and goes on writing there.
  void cutTo(std::uint64_t length);
  const std::string& name() const noexcept { return name_; }

 private:
  OutputFile(std::string name, HANDLE file, bool owned);
  HANDLE get() const noexcept { return owned_ ? owned_.get() : standard_; }

  std::string name_;
  UniqueFileHandle owned_;
  HANDLE standard_ = INVALID_HANDLE_VALUE;
};

/// Renames in one step, over a file that has the name already.
void renameFile(const std::string& from, const std::string& to);

/// Deletes a file; it may be gone already.
void removeFile(const std::string& path);

/// Replaces the file in one step: whoever looks sees the old content or the new one, also after a
/// crash. Writes `path`.tmp, forces it to disk and renames it.
void replaceFile(const std::string& path, std::string_view content);

/// The whole file; throws ToolError when it cannot be read or is larger than `limit` bytes.
std::string readTextFile(const std::string& path, std::uint64_t limit);

}  // namespace tallow::tools
