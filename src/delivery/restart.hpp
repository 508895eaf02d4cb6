// The restart after a new load: the writer sends the job's data again from its beginning.
#pragma once

#include <cstdint>

#include "delivery/job.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

// Reads and drops the re-sent data up to block blockNo, keeps that block for the next Read and
// checks the signature of it all. Sets return code 32 and raises message 32 if the position has no
// sync point or the data ends before it. Return code 16 if the data differs. After the first read
// from the pipe, a failure leaves the job without a stream.
void restart(Job& job, TallowRequestBlock& request, std::uint64_t blockNo);

// Sets return code 32 and raises message 32.
[[noreturn]] void refusePosition(TallowRequestBlock& request);

}  // namespace tallow::delivery
