// How much of the run-time library's heap the module holds.
#pragma once

#include <windows.h>

#include <cstddef>

namespace tallow::test {

// Counts the module's allocations, beginning before its entry runs. Install it before any fault, so
// that a failing allocation is not counted.
void installMemoryCount(HMODULE module);

// Blocks that counted modules have taken and not freed.
long blocksHeld();

}  // namespace tallow::test
