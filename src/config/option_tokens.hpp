// The initialisation string as a sequence of keywords and values.
#pragma once

#include <string>
#include <string_view>

namespace tallow::config {

// Blanks, tabs and newlines separate options; any mix of them and equals signs separates a keyword
// from its value; a value may stand in single or double quotes. A carriage return separates
// nothing. The text must outlive the object.
class OptionTokens {
 public:
  explicit OptionTokens(std::string_view text) : rest_(text) {}

  // Moves to the next option. False at the end, or where a keyword would begin with "=". Throws
  // std::out_of_range when a value's closing quote is missing.
  bool next();

  std::string_view keyword() const noexcept { return keyword_; }
  std::string_view value() const noexcept { return value_; }

 private:
  void takeValue();

  std::string_view rest_;
  std::string_view keyword_;
  std::string_view value_;
};

}  // namespace tallow::config
