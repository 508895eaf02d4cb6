// The layout of a fallback file, described in docs/fallback-format.md.
//
//   header block   HeaderImage, at offset 0, written once when the file is created
//   sync area      SyncPoints, at kSyncAreaOffset, rewritten in place at each checkpoint
//   data area      block records, from kDataStartOffset to the end, in ascending block number
//
// Integers are little-endian and nothing is padded. The module and every tool that reads such a
// file share this.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "fallback/md5.hpp"

namespace tallow::fallback {

inline constexpr char kHeaderText[] = "Varnholt Fallback File 01.03.00\n";
inline constexpr std::size_t kHeaderTextLength = sizeof kHeaderText - 1;
inline constexpr std::size_t kPipeNameSize = 260;  // bytes, NUL included

// The block number that means none. Blocks count from 1; 0 is the position before the first.
inline constexpr std::uint64_t kNoBlock = ~std::uint64_t{0};

#pragma pack(push, 1)
struct HeaderImage {
  char headerText[kHeaderTextLength + 1];  // kHeaderText with its NUL
  std::uint32_t blockSize;                 // bytes of a block
  std::uint8_t signatureFlag;              // 1 if sync points carry signatures, else 0
  char pipeName[kPipeNameSize];            // the whole pipe name, filled up with NULs
};
#pragma pack(pop)
static_assert(offsetof(HeaderImage, blockSize) == kHeaderTextLength + 1);
static_assert(offsetof(HeaderImage, signatureFlag) == kHeaderTextLength + 5);
static_assert(offsetof(HeaderImage, pipeName) == kHeaderTextLength + 6);
static_assert(sizeof(HeaderImage) == 298);

struct SyncPoint {
  std::uint64_t blockNo;  // the last delivered block when it was taken; kNoBlock: no sync point
  Md5Digest signature;    // of all data up to that block; zeros without signatures

  bool operator==(const SyncPoint&) const = default;
};
static_assert(sizeof(SyncPoint) == 24 && offsetof(SyncPoint, signature) == 8);

// The older sync point first, then the newer.
using SyncPoints = std::array<SyncPoint, 2>;
static_assert(sizeof(SyncPoints) == 48);
inline constexpr SyncPoint kNoSyncPoint = {kNoBlock, {}};
inline constexpr SyncPoints kNoSyncPoints = {kNoSyncPoint, kNoSyncPoint};

inline constexpr std::uint64_t kSyncAreaOffset = sizeof(HeaderImage);
inline constexpr std::uint64_t kDataStartOffset = kSyncAreaOffset + sizeof(SyncPoints);
static_assert(kDataStartOffset == 346);

// A block record. With fullBlocks off it begins with a 32-bit count of the block's valid bytes.
// Then come blockSize bytes; those after the valid ones mean nothing.
struct RecordLayout {
  std::uint64_t blockSize;  // bytes
  bool fullBlocks;

  constexpr std::uint64_t lengthFieldSize() const { return fullBlocks ? 0 : 4; }
  constexpr std::uint64_t recordSize() const { return blockSize + lengthFieldSize(); }

  // Where the record of a block starts in a file whose first record is that of firstBlockNo. If
  // blockNo is kNoBlock, the start of the data area.
  constexpr std::uint64_t offsetOf(std::uint64_t blockNo, std::uint64_t firstBlockNo) const {
    if (blockNo == kNoBlock) return kDataStartOffset;
    return kDataStartOffset + (blockNo - firstBlockNo) * recordSize();
  }

  // Where a restart after a new load looks up a block's length. The format requires it to count
  // from block 1, whatever block the file begins with; see docs/fallback-format.md.
  constexpr std::uint64_t restartLookupOffset(std::uint64_t blockNo) const {
    return kDataStartOffset + (blockNo - 1) * (blockSize + 4);
  }
};

// A header for a new file; pipeName is cut to 259 characters.
void setPipeName(HeaderImage& header, const char* pipeName);
void setJobFields(HeaderImage& header, std::uint64_t blockSize, bool signatures);

enum class HeaderVerdict { kAccepted, kTextDiffers, kPipeNameDiffers, kBlockSizeDiffers };

// Whether a file with this header belongs to a job. Terminates the two texts in the image that was
// read. The signature flag is not compared: a job that takes over a file uses the file's flag.
HeaderVerdict judgeHeader(HeaderImage& read, const char* pipeName, std::uint64_t blockSize);

// Adds a block's sync point to the pair. It becomes the newer one, and the newer one becomes the
// older; but if the newer one has the same block, it is replaced. A sync point of kNoBlock or 0
// takes both places.
void addSyncPoint(SyncPoints& points, const SyncPoint& point);

// The sync point of the block; the older one if both have it, null if neither does.
const SyncPoint* findSyncPoint(const SyncPoints& points, std::uint64_t blockNo);

}  // namespace tallow::fallback
