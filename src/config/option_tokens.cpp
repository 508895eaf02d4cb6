#include "config/option_tokens.hpp"

#include <stdexcept>

#include "text/ascii.hpp"

namespace tallow::config {
namespace {

constexpr std::string_view kBlanks = " \t\n";
constexpr std::string_view kKeywordEnd = "= \t\n";

std::string_view takeUntil(std::string_view& text, std::string_view characters) {
  const std::string_view taken = text.substr(0, text.find_first_of(characters));
  text.remove_prefix(taken.size());
  return taken;
}

}  // namespace

bool OptionTokens::next() {
  text::dropLeading(rest_, kBlanks);
  keyword_ = takeUntil(rest_, kKeywordEnd);
  if (keyword_.empty()) return false;
  text::dropLeading(rest_, kKeywordEnd);
  takeValue();
  return true;
}

void OptionTokens::takeValue() {
  if (!rest_.starts_with('\'') && !rest_.starts_with('"')) {
    value_ = takeUntil(rest_, kBlanks);
    return;
  }
  const std::string_view quote = rest_.substr(0, 1);
  rest_.remove_prefix(1);
  value_ = takeUntil(rest_, quote);
  // The host sees the text of this error, so it is fixed here.
  if (rest_.empty()) throw std::out_of_range("invalid string position");
  rest_.remove_prefix(1);
}

}  // namespace tallow::config
