// The least that a job can do: the bare loop beside which the module is measured.
#pragma once

#include <string>

#include "jobs/feed.hpp"
#include "jobs/measure.hpp"
#include "jobs/shape.hpp"

namespace tallow::bench {

// The same pauses and ReadFile calls, MD5, one copy and one fwrite a block, nothing else. It goes
// back to the start of its file where the module does, as writing over a file costs less than
// making it grow. The clock runs from the first block to the end of the data.
Timing runFloor(const Shape& shape, const Stream& stream, const std::string& scratch);

}  // namespace tallow::bench
