// Letters and blanks of ASCII, whatever the process's locale says of other characters.
#pragma once

#include <algorithm>
#include <string_view>

namespace tallow::text {

constexpr char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

constexpr bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

// Drops the characters of a text up to the first one that is not among those given.
constexpr void dropLeading(std::string_view& text, std::string_view characters) {
  text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

}  // namespace tallow::text
