// Which positions SetPos can go back to within a run.
#pragma once

#include <cstdint>
#include <optional>

#include "fallback/fallback_format.hpp"

namespace tallow::delivery {

// What the answer depends on: block numbers, each fallback::kNoBlock if there is none.
struct RestartPoints {
  std::uint64_t lastDelivered;  // 0: nothing has been delivered
  std::uint64_t checkpoint;
  std::uint64_t fileFirst;
  std::uint64_t fileLast;
  std::uint64_t pending;  // the block that is written before the file is replayed, if it fits
};

// The block that the next Read delivers after SetPos has gone back to this position, or 0 if
// nothing has been delivered and the job simply begins. Nothing if the position is refused.
//
// Accepted are the latest checkpoint, the file's first block, and 0 while the data from block 1 on
// is there. The block must be in the file, or pending and the next to be written.
std::optional<std::uint64_t> blockToRestartAt(const RestartPoints& points, std::uint64_t position);

}  // namespace tallow::delivery
