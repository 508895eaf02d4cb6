// The least that a job can do: the bare loop that the module is compared with.
#pragma once

#include <string>

#include "jobs/feed.hpp"
#include "jobs/measure.hpp"
#include "jobs/shape.hpp"

namespace tallow::bench {

// For each block the same pauses and ReadFile calls, MD5, one copy and one fwrite, and nothing
// else. It returns to the start of its file where the module does, because overwriting a file costs
// less than making it grow. The clock runs from the first block to the end of the data.
Timing runFloor(const Shape& shape, const Stream& stream, const std::string& scratch);

}  // namespace tallow::bench
