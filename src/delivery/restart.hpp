// The restart after a new load: the writer sends the job's data again from its beginning.
#pragma once

#include <cstdint>

#include "delivery/job.hpp"

namespace tallow::delivery {

// Reads and drops the re-sent data up to block blockNo, keeps that block for the next Read and
// checks the signature of it all. Returns the return code: 16 if the data differs. Raises message
// 32 with return code 32 if the position has no sync point or the data ends before it. After the
// first read from the pipe, a failure leaves the job without a stream.
[[nodiscard]] std::uint32_t restart(Job& job, std::uint64_t blockNo);

// Raises message 32 with return code 32.
[[noreturn]] void refusePosition();

}  // namespace tallow::delivery
