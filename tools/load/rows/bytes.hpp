// What is done with each byte of the data, quickly.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace tallow::load {

struct ByteKinds {
  bool nonAscii = false;
  bool nul = false;
};

// The index of the first LF or CR, or the text's size if there is none. Adds the kinds of the bytes
// before it to `kinds`.
std::size_t scanLine(std::string_view text, ByteKinds& kinds) noexcept;

// Like memcpy, but without the call for up to 16 bytes: it copies two pieces that overlap in the
// middle.
inline void copyShort(char* to, const char* from, std::size_t length) noexcept {
  const auto twoPieces = [&](auto piece) {
    constexpr std::size_t kSize = sizeof piece;
    auto last = piece;
    std::memcpy(&piece, from, kSize);
    std::memcpy(&last, from + length - kSize, kSize);
    std::memcpy(to, &piece, kSize);
    std::memcpy(to + length - kSize, &last, kSize);
  };
  if (length > 16) {
    std::memcpy(to, from, length);
  } else if (length >= 8) {
    twoPieces(0ULL);
  } else if (length >= 4) {
    twoPieces(0U);
  } else if (length > 0) {
    to[0] = from[0];
    to[length / 2] = from[length / 2];
    to[length - 1] = from[length - 1];
  }
}

}  // namespace tallow::load
