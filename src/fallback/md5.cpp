#include "fallback/md5.hpp"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace tallow::fallback {

namespace {

constexpr std::size_t kBlock = 64;
constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

const std::array<std::uint32_t, 64>& sines() noexcept {
  static const auto table = [] {
    std::array<std::uint32_t, 64> values{};
    for (std::size_t i = 0; i < 64; ++i) {
      values[i] = static_cast<std::uint32_t>(
          std::floor(std::fabs(std::sin(static_cast<double>(i + 1))) * 4294967296.0));
    }
    return values;
  }();
  return table;
}

void transform(std::uint32_t (&state)[4], const std::uint8_t* block) noexcept {
  std::uint32_t x[16];
  std::memcpy(x, block, kBlock);
  std::uint32_t a = state[0];
  std::uint32_t b = state[1];
  std::uint32_t c = state[2];
  std::uint32_t d = state[3];
  for (std::uint32_t i = 0; i < 64; ++i) {
    std::uint32_t f = 0;
    std::uint32_t k = 0;
    switch (i / 16) {
      case 0:
        f = (b & c) | (~b & d);
        k = i;
        break;
      case 1:
        f = (d & b) | (~d & c);
        k = 5 * i + 1;
        break;
      case 2:
        f = b ^ c ^ d;
        k = 3 * i + 5;
        break;
      default:
        f = c ^ (b | ~d);
        k = 7 * i;
        break;
    }
    const std::uint32_t sum = a + f + x[k % 16] + sines()[i];
    a = d;
    d = c;
    c = b;
    b += std::rotl(sum, kShifts[i / 16][i % 4]);
  }
  state[0] += a;
  state[1] += b;
  state[2] += c;
  state[3] += d;
}

}  // namespace

void md5Init(Md5Context& context) noexcept {
  context = {{0, 0}, {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {}};
}

void md5Update(Md5Context& context, const void* data, std::size_t length) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  std::size_t used = (context.bitCount[0] >> 3) % kBlock;
  const std::uint64_t bits =
      (std::uint64_t{context.bitCount[1]} << 32 | context.bitCount[0]) + 8 * std::uint64_t{length};
  context.bitCount[0] = static_cast<std::uint32_t>(bits);
  context.bitCount[1] = static_cast<std::uint32_t>(bits >> 32);
  while (length != 0) {
    const std::size_t taken = std::min(length, kBlock - used);
    std::memcpy(context.buffer + used, bytes, taken);
    bytes += taken;
    length -= taken;
    used += taken;
    if (used == kBlock) {
      transform(context.state, context.buffer);
      used = 0;
    }
  }
}

Md5Digest md5Final(Md5Context& context) noexcept {
  static constexpr std::uint8_t kPadding[kBlock] = {0x80};
  std::uint8_t count[8];
  std::memcpy(count, context.bitCount, sizeof count);
  const std::size_t used = (context.bitCount[0] >> 3) % kBlock;
  md5Update(context, kPadding, used < 56 ? 56 - used : 120 - used);
  md5Update(context, count, sizeof count);
  Md5Digest digest;
  std::memcpy(digest.data(), context.state, digest.size());
  return digest;
}

Md5Digest md5OfCopy(const Md5Context& context) noexcept {
  Md5Context copy = context;
  return md5Final(copy);
}

}  // namespace tallow::fallback
