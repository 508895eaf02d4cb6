// The requests that deliver data and positions. A failure is raised as the module's error exception
// or reported as a return code, as each comment says. The caller sets return code 0.
#pragma once

#include "delivery/job.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

// The next block: from the fallback file while it replays, else from the pipe. The caller has set
// the block's data length to 0. Return code 9 at the end of the data, 16 if the block cannot be
// read from the file or the stream cannot be continued. Raises what the pipe raises, and message
// 103 or 104 if the file cannot be positioned.
void read(Job& job, TallowRequestBlock& request, TallowReadBlock& block);

// A checkpoint: returns the number of the last delivered block, creates the fallback file if there
// is none, and writes a sync point. If the file fails, the job continues without one; only message
// 104 is raised.
void getPos(Job& job, TallowRequestBlock& request, TallowPositionBlock& block);

// Goes back to a checkpoint: within the run by replaying the fallback file, after a new load by
// dropping the re-sent data up to the position and checking its signature. Return code 32 if the
// position cannot be reached, 16 if the data differs.
void setPos(Job& job, TallowRequestBlock& request, TallowPositionBlock& block);

}  // namespace tallow::delivery
