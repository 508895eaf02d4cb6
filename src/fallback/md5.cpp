// MD5 of RFC 1321. One thing limits its speed: each of the 64 steps of a block needs the result of
// the step before. So a block takes as long as the chain of operations from one b to the next,
//
//   b' = b + rotl(a + f(b, c, d) + word + constant, shift)
//
// and everything that does not depend on b is free. So the sum a + word + constant is formed first,
// and each f is written with as few operations as possible after b is known (section 3.4 of the RFC
// has the same functions with more):
//
//   F = d ^ (b & (c ^ d))     c ^ d does not need b:                    & ^ + rotl +   5 cycles
//   G = (~d & c) + (d & b)    the halves share no bit, so their "or"
//                             is a sum, and the one without b joins
//                             a + word + constant:                      & + rotl +     4
//   H = b ^ (c ^ d)                                                     ^ + rotl +     4
//   I = c ^ (b | ~d)                                                    | ^ + rotl +   5
//
// At one cycle for each operation, that is 16 * (5 + 4 + 4 + 5) = 288 cycles for 64 bytes, or 4.5 a
// byte. The four words of the state are plain variables, which stay in registers. The steps are
// unrolled: a step renames the words by the order of its arguments and moves nothing.
#include "fallback/md5.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace tallow::fallback {
namespace {

using Word = std::uint32_t;

static_assert(std::endian::native == std::endian::little, "words are read as they lie in memory");

constexpr std::size_t kBlock = 64;        // bytes
constexpr std::size_t kCountOffset = 56;  // of the bit count in the last block

constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

// floor(2^32 * |sin(i + 1)|), i + 1 in radians.
constexpr Word kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// Which of the block's 16 words a step takes.
constexpr std::size_t wordIndex(std::size_t step) {
  constexpr std::size_t kFactor[4] = {1, 5, 3, 7};
  constexpr std::size_t kStart[4] = {0, 1, 5, 0};
  return (kFactor[step / 16] * step + kStart[step / 16]) % 16;
}

template <std::size_t step>
[[gnu::always_inline]] inline void doStep(Word& a, Word b, Word c, Word d,
                                          const std::uint8_t* block) noexcept {
  constexpr std::size_t kRound = step / 16;
  Word word;
  std::memcpy(&word, block + wordIndex(step) * sizeof word, sizeof word);
  a += word + kSines[step];
  if constexpr (kRound == 0) {
    a += d ^ (b & (c ^ d));
  } else if constexpr (kRound == 1) {
    a += ~d & c;
    a += d & b;
  } else if constexpr (kRound == 2) {
    a += b ^ (c ^ d);
  } else {
    a += c ^ (b | ~d);
  }
  a = b + std::rotl(a, kShifts[kRound][step % 4]);
}

template <std::size_t first>
[[gnu::always_inline]] inline void fourSteps(Word& a, Word& b, Word& c, Word& d,
                                             const std::uint8_t* block) noexcept {
  doStep<first>(a, b, c, d, block);
  doStep<first + 1>(d, a, b, c, block);
  doStep<first + 2>(c, d, a, b, block);
  doStep<first + 3>(b, c, d, a, block);
}

// Adds whole blocks to the state.
void transform(Word (&state)[4], const std::uint8_t* data, std::size_t blocks) noexcept {
  Word a = state[0];
  Word b = state[1];
  Word c = state[2];
  Word d = state[3];
  for (; blocks != 0; --blocks, data += kBlock) {
    const Word before[4] = {a, b, c, d};
    [&]<std::size_t... fours>(std::index_sequence<fours...>) {
      (fourSteps<4 * fours>(a, b, c, d, data), ...);
    }(std::make_index_sequence<16>());
    a += before[0];
    b += before[1];
    c += before[2];
    d += before[3];
  }
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

std::size_t bytesInBuffer(const Md5Context& context) noexcept {
  return (context.bitCount[0] >> 3) % kBlock;
}

void addToBitCount(Md5Context& context, std::size_t length) noexcept {
  const std::uint64_t before = std::uint64_t{context.bitCount[1]} << 32 | context.bitCount[0];
  const std::uint64_t after = before + 8 * std::uint64_t{length};
  context.bitCount[0] = static_cast<Word>(after);
  context.bitCount[1] = static_cast<Word>(after >> 32);
}

}  // namespace

void md5Init(Md5Context& context) noexcept {
  context = {{0, 0}, {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476}, {}};
}

void md5Update(Md5Context& context, const void* data, std::size_t length) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  const std::size_t used = bytesInBuffer(context);
  addToBitCount(context, length);
  if (used != 0) {
    const std::size_t taken = std::min(length, kBlock - used);
    std::copy_n(bytes, taken, context.buffer + used);
    if (used + taken < kBlock) return;
    transform(context.state, context.buffer, 1);
    bytes += taken;
    length -= taken;
  }
  transform(context.state, bytes, length / kBlock);
  std::copy_n(bytes + length / kBlock * kBlock, length % kBlock, context.buffer);
}

Md5Digest md5Final(Md5Context& context) noexcept {
  static constexpr std::uint8_t kPadding[kBlock] = {0x80};
  std::uint8_t count[8];
  std::memcpy(count, context.bitCount, sizeof count);
  const std::size_t used = bytesInBuffer(context);
  const std::size_t end = used < kCountOffset ? kCountOffset : kBlock + kCountOffset;
  md5Update(context, kPadding, end - used);
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
