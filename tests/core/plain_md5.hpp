// MD5 as the RFC's text describes it, step by step, with a computed table. It is slow and shares
// nothing with the module's.
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>

namespace tallow::test {

// The digest of `data` after `precedingBytes` bytes (a multiple of 64) that left the state as it is
// at the start. Only their number matters.
inline std::array<std::uint8_t, 16> plainMd5(std::string data, std::uint64_t precedingBytes = 0) {
  constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
  const std::uint64_t bits = 8 * (precedingBytes + data.size());
  data += '\x80';
  while (data.size() % 64 != 56) data += '\0';
  for (int i = 0; i < 64; i += 8) data += static_cast<char>(bits >> i);

  std::array<std::uint32_t, 4> state = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  for (std::size_t block = 0; block < data.size(); block += 64) {
    auto [a, b, c, d] = state;
    for (std::size_t i = 0; i < 64; ++i) {
      const std::pair<std::uint32_t, std::size_t> choices[4] = {{(b & c) | (~b & d), i},
                                                                {(b & d) | (c & ~d), 5 * i + 1},
                                                                {b ^ c ^ d, 3 * i + 5},
                                                                {c ^ (b | ~d), 7 * i}};
      const auto [function, index] = choices[i / 16];
      std::uint32_t word = 0;
      for (std::size_t byte = 4; byte-- > 0;) {
        word = word << 8 | static_cast<std::uint8_t>(data[block + index % 16 * 4 + byte]);
      }
      const auto sine = static_cast<std::uint32_t>(std::fabs(std::sin(static_cast<double>(i + 1))) *
                                                   4294967296.0);
      const std::uint32_t sum = a + function + word + sine;
      a = d;
      d = c;
      c = b;
      b += std::rotl(sum, kShifts[i / 16][i % 4]);
    }
    state = {state[0] + a, state[1] + b, state[2] + c, state[3] + d};
  }
  std::array<std::uint8_t, 16> digest = {};
  for (unsigned i = 0; i < 16; ++i) {
    digest[i] = static_cast<std::uint8_t>(state[i / 4] >> (i % 4 * 8));
  }
  return digest;
}

}  // namespace tallow::test
