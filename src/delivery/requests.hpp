// The requests that deliver data and positions. Failures are raised as the module's error exception
// or told as a return code, as each comment says; return code 0 is set by the caller.
#pragma once

#include "delivery/job.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

// The next block: from the fallback file while it replays, else from the pipe. The block's data
// length is 0 at first. Return code 9 at the end of the data, 16 when the block cannot be had from
// the file, or the stream can't be continued. Raises what the pipe raises, and messages 103 and 104
// when the file can't be positioned.
void read(Job& job, TallowRequestBlock& request, TallowReadBlock& block);

// A checkpoint: answers the number of the last delivered block, sees to the fallback file and
// writes a sync point. Trouble with the file only means that there is none, except message 104.
void getPos(Job& job, TallowRequestBlock& request, TallowPositionBlock& block);

// Back to a checkpoint: in the run by replaying the fallback file, after a new load by dropping the
// re-sent data up to the position and checking its signature. Return code 32 for a position that
// cannot be reached, 16 for data that differs.
void setPos(Job& job, TallowRequestBlock& request, TallowPositionBlock& block);

}  // namespace tallow::delivery
