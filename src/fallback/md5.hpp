// The MD5 message digest of RFC 1321.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tallow::fallback {

using Md5Digest = std::array<std::uint8_t, 16>;

// 88 bytes: the number of bits so far as two words, low word first; the state A, B, C, D; and the
// bytes that do not fill a 64-byte block yet.
struct Md5Context {
  std::uint32_t bitCount[2];
  std::uint32_t state[4];
  std::uint8_t buffer[64];
};
static_assert(sizeof(Md5Context) == 88);

void md5Init(Md5Context& context) noexcept;
void md5Update(Md5Context& context, const void* data, std::size_t length) noexcept;

// The digest of all data so far. The context must be initialised anew before it is used again.
Md5Digest md5Final(Md5Context& context) noexcept;

// The same from a copy, so that the context can continue.
Md5Digest md5OfCopy(const Md5Context& context) noexcept;

}  // namespace tallow::fallback
