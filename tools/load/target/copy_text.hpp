// Writes rows as COPY reads them in its text format.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "load/rows/row_parser.hpp"

namespace tallow::load {

// Collects rows in the text format of COPY: a tab between values, LF after each row, \N for null.
// A backslash marks a backslash, tab, LF or CR inside a value. Each row is one line.
class CopyText {
 public:
  // A value that equals `nullText` is null, like a field that is.
  explicit CopyText(std::optional<std::string> nullText) : nullText_(std::move(nullText)) {}

  // The row must have at least one field, and no NUL inside.
  void add(const Row& row);

  // Valid until the text is changed.
  std::string_view text() const noexcept { return {buffer_.data(), used_}; }
  void clear() noexcept { used_ = 0; }

 private:
  void addValue(std::string_view value);
  void makeRoom(std::size_t bytes);

  std::optional<std::string> nullText_;
  std::vector<char> buffer_;
  std::size_t used_ = 0;
};

}  // namespace tallow::load
