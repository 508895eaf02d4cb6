// Files for rows that were not loaded, as they came, and for the reasons.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/output_file.hpp"
#include "load/job/bad_rows.hpp"

namespace tallow::load {

// The rejects file and, as `path`.reasons.csv, a table of line, byte offset, SQLSTATE and reason.
// Both grow with the load and are cut back with it. Without a path nothing is written.
class Rejects {
 public:
  // Opens the files and does not change them. Throws ToolError if they cannot be written, or are
  // shorter than the database says.
  Rejects(const std::string& path, std::uint64_t length, std::uint64_t reasonsLength);

  static std::string reasonsPath(const std::string& path) { return path + ".reasons.csv"; }

  void write(const Row& row, const Diagnostic& reason);
  void cutTo(std::uint64_t length, std::uint64_t reasonsLength);
  void flushToDisk();

  std::uint64_t length() const noexcept { return length_; }
  std::uint64_t reasonsLength() const noexcept { return reasonsLength_; }

 private:
  std::optional<tools::OutputFile> rows_;
  std::optional<tools::OutputFile> reasons_;
  std::uint64_t length_ = 0;
  std::uint64_t reasonsLength_ = 0;
  bool unflushed_ = false;
};

}  // namespace tallow::load
