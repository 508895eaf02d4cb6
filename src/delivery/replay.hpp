// Serving a block out of the fallback file.
#pragma once

#include "delivery/job.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

// Delivers the next block from the file and goes back to the pipe behind the file's last one.
// Return code 16, with nothing delivered, when the record cannot be read; the next call tries the
// same record again. Raises messages 103 and 104 when the file can't be positioned.
void replay(Job& job, TallowRequestBlock& request, TallowReadBlock& block);

}  // namespace tallow::delivery
