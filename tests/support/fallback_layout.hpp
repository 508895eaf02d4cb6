// What is where in a fallback file. This is a second version on purpose: the tests do not take the
// layout from the code that they test.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tallow::test {

inline constexpr std::size_t kBlockSizeOffset = 33;
inline constexpr std::size_t kSignatureFlagOffset = 37;
inline constexpr std::size_t kPipeNameOffset = 38;
inline constexpr std::size_t kHeaderSize = 298;
inline constexpr std::size_t kSignatureSize = 16;
inline constexpr std::size_t kSignatureOffset = 8;  // in a sync point, after its block number
inline constexpr std::size_t kSyncPointSize = kSignatureOffset + kSignatureSize;
inline constexpr std::size_t kOlderSyncPoint = kHeaderSize;
inline constexpr std::size_t kNewerSyncPoint = kOlderSyncPoint + kSyncPointSize;
inline constexpr std::size_t kDataStart = kNewerSyncPoint + kSyncPointSize;
inline constexpr std::size_t kLengthFieldSize = 4;  // of a record, with Need_Full_Block off

// The block number that means none.
inline constexpr std::uint64_t kNoBlock = ~std::uint64_t{0};

// One that has not been taken yet, unless its fields say otherwise.
struct SyncPoint {
  std::uint64_t block = kNoBlock;
  std::string signature = std::string(kSignatureSize, '\0');
  bool operator==(const SyncPoint&) const = default;
};

// The sync point at kOlderSyncPoint or kNewerSyncPoint. Throws std::out_of_range if the file ends
// before it.
SyncPoint syncPointAt(std::string_view file, std::size_t offset);

// Little-endian.
std::string bytesOf32(std::uint32_t number);
std::string bytesOf64(std::uint64_t number);
// From the first bytes of a text.
std::uint32_t numberOf32(std::string_view bytes);
std::uint64_t numberOf64(std::string_view bytes);

}  // namespace tallow::test
