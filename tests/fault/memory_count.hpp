// What the module holds of the run-time library's heap.
#pragma once

#include <windows.h>

#include <cstddef>

namespace tallow::test {

// Counts the module's allocations from before its entry runs. To be put in place before any fault,
// so that a failing allocation is not counted.
void installMemoryCount(HMODULE module);

// Blocks that modules with the count in place have taken and not given back.
long blocksHeld();

}  // namespace tallow::test
