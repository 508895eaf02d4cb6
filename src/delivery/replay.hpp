// Delivering a block from the fallback file.
#pragma once

#include <cstdint>

#include "delivery/job.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

// Delivers the next block from the file. After the file's last block, the job reads from the pipe
// again. Returns the return code: 16, with nothing delivered, if the record cannot be read; the
// next call tries the same record again. Raises message 103 or 104 if the file cannot be
// positioned.
[[nodiscard]] std::uint32_t replay(Job& job, TallowReadBlock& block);

}  // namespace tallow::delivery
