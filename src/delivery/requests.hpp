// The requests that deliver data and positions. Each returns its return code, 0 for success. Other
// failures are raised as the module's error exception, as each comment says.
#pragma once

#include <cstdint>

#include "delivery/job.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

// The next block: from the fallback file while it replays, else from the pipe. The caller has set
// the block's data length to 0. Return code 9 at the end of the data, 16 if the block cannot be
// read from the file or the stream cannot be continued. Raises what the pipe raises, and message
// 103 or 104 if the file cannot be positioned.
[[nodiscard]] std::uint32_t read(Job& job, TallowReadBlock& block);

// A checkpoint: returns the number of the last delivered block, creates the fallback file if there
// is none, and writes a sync point. If the file fails, the job continues without one; only
// kFallbackTellFailed is raised. Return code 16 if the stream is lost.
[[nodiscard]] std::uint32_t getPos(Job& job, TallowPositionBlock& block);

// Goes back to a checkpoint: within the run by replaying the fallback file, after a new load by
// dropping the re-sent data up to the position and checking its signature. Return code 16 if the
// data differs or the stream cannot be continued. Raises kBadPosition with return code 32
// if the position cannot be reached; kBadPositionLength, kFailedWithoutText (no position),
// kNoFallbackFile, kFallbackFileUnusable, and what reading the pipe and the file raises.
[[nodiscard]] std::uint32_t setPos(Job& job, const TallowPositionBlock& block);

}  // namespace tallow::delivery
