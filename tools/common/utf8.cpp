#include "common/utf8.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tallow::tools {
namespace {

// The number of ASCII bytes at the beginning of `text`, counted in steps of eight.
std::size_t asciiPrefix(std::string_view text) noexcept {
  std::size_t length = 0;
  for (; length + sizeof(std::uint64_t) <= text.size(); length += sizeof(std::uint64_t)) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & 0x8080808080808080U) != 0) break;
  }
  return length;
}

bool isContinuation(unsigned char byte) noexcept {
  return (byte & 0xC0U) == 0x80U;
}

}  // namespace

std::size_t characterLength(std::string_view text) noexcept {
  const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = at(0);
  if (lead < 0x80) return 1;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (!isContinuation(at(i))) return 0;
  }
  // The second byte rules out overlong forms, surrogates and what lies above U+10FFFF.
  if (lead == 0xE0 && at(1) < 0xA0) return 0;
  if (lead == 0xED && at(1) > 0x9F) return 0;
  if (lead == 0xF0 && at(1) < 0x90) return 0;
  if (lead == 0xF4 && at(1) > 0x8F) return 0;
  return length;
}

bool isAscii(std::string_view text) noexcept {
  text.remove_prefix(asciiPrefix(text));
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool isUtf8(std::string_view text) noexcept {
  text.remove_prefix(asciiPrefix(text));
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::size_t toUtf16(std::string_view text, char16_t* units) noexcept {
  std::size_t count = 0;
  for (std::size_t i = 0; i < text.size();) {
    const auto at = [&](std::size_t k) {
      return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i + k]));
    };
    const std::uint32_t lead = at(0);
    if (lead < 0x80) {
      units[count++] = static_cast<char16_t>(lead);
      i += 1;
    } else if (lead < 0xE0) {
      units[count++] = static_cast<char16_t>((lead & 0x1FU) << 6U | (at(1) & 0x3FU));
      i += 2;
    } else if (lead < 0xF0) {
      units[count++] =
          static_cast<char16_t>((lead & 0x0FU) << 12U | (at(1) & 0x3FU) << 6U | (at(2) & 0x3FU));
      i += 3;
    } else {
      const std::uint32_t above = ((lead & 0x07U) << 18U | (at(1) & 0x3FU) << 12U |
                                   (at(2) & 0x3FU) << 6U | (at(3) & 0x3FU)) -
                                  0x10000U;
      units[count++] = static_cast<char16_t>(0xD800U + (above >> 10U));
      units[count++] = static_cast<char16_t>(0xDC00U + (above & 0x3FFU));
      i += 4;
    }
  }
  return count;
}

}  // namespace tallow::tools
