// Where a thread that does not come back stands.
#pragma once

#include <windows.h>

namespace tallow::test {

// Writes to standard error, innermost first, the calls that `thread` is in, as `library+offset`
// from the image's base. Suspends the thread, takes no lock and no memory: whatever the thread
// holds, this comes to its end.
void printStack(HANDLE thread);

}  // namespace tallow::test
