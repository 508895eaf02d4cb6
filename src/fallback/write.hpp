// Putting blocks and sync points into the fallback file.
#pragma once

#include <cstdint>
#include <memory>

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

// The latest block read from the pipe. It is kept until the next request, so the file is always one
// block behind the host.
struct PendingBlock {
  // blockSize bytes, filled with zeros so that no other data in memory reaches a file.
  explicit PendingBlock(std::uint64_t blockSize)
      : pendingData(std::make_unique<std::uint8_t[]>(blockSize)) {}

  std::unique_ptr<std::uint8_t[]> pendingData;
  std::uint32_t pendingLength = 0;          // valid bytes
  std::uint64_t pendingBlockNo = kNoBlock;  // kNoBlock: nothing to write
};

// What a write of the pending block may do to the data area.
enum class PendingWrite {
  kMayStartArea,  // the block of the latest checkpoint starts it anew
  kOnlyAppend     // it is appended whatever its number: the first block is about to be replayed
};

// Writes the pending block if the file is open, a checkpoint was taken (checkpointBlockNo) and the
// block follows the file's last one. True if it became the first block of the data area.
bool writePendingBlock(FallbackFile& file, const config::OptionsRecord& options,
                       PendingBlock& pending, std::uint64_t checkpointBlockNo, PendingWrite mode);

// The sync point of a block: its number and, if the file has signatures, the signature of all data
// in running.
SyncPoint syncPointAt(const FallbackFile& file, std::uint64_t blockNo, const Md5Context& running);

// Adds a sync point to the pair, writes the sync area at the stream's position and flushes it. The
// signature covers all data in running. The stream must be open at kSyncAreaOffset. False if the
// write failed, which has deleted the file.
bool writeSyncArea(FallbackFile& file, std::uint64_t blockNo, const Md5Context& running);

}  // namespace tallow::fallback
