#include "common/printable.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "common/utf8.hpp"

namespace tallow::tools {
namespace {

struct Range {
  char16_t first;
  char16_t last;
};

// Characters that end a line or change the direction of writing, and the control characters above
// ASCII.
constexpr std::array<Range, 5> kObeyed = {
    {{0x80, 0x9F}, {0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}}};

bool isObeyed(char16_t unit) {
  return std::ranges::any_of(
      kObeyed, [&](const Range& range) { return unit >= range.first && unit <= range.last; });
}

void appendCode(std::string& text, char kind, int digits, unsigned code) {
  std::array<char, 16> spelled{};
  std::snprintf(spelled.data(), spelled.size(), "\\%c%0*X", kind, digits, code);
  text += spelled.data();
}

// Appends a well-formed character of several bytes.
void appendWide(std::string& text, std::string_view character) {
  std::array<char16_t, 4> units{};
  if (toUtf16(character, units.data()) == 1 && isObeyed(units[0])) {
    appendCode(text, 'u', 4, units[0]);
  } else {
    text += character;
  }
}

}  // namespace

std::string printable(std::string_view utf8) {
  std::string text;
  text.reserve(utf8.size());
  while (!utf8.empty()) {
    const std::size_t length = characterLength(utf8);
    const auto byte = static_cast<unsigned char>(utf8.front());
    if (length > 1) {
      appendWide(text, utf8.substr(0, length));
    } else if (length == 0 || byte < 0x20 || byte == 0x7F) {
      appendCode(text, 'x', 2, byte);
    } else {
      text += utf8.front();
    }
    utf8.remove_prefix(length > 0 ? length : 1);
  }
  return text;
}

}  // namespace tallow::tools
