// Shows where a hanging thread is.
#pragma once

#include <windows.h>

namespace tallow::test {

// Writes to standard error, innermost first, the calls that `thread` is in, as `library+offset`
// from the image's base. Suspends the thread. Takes no lock and no memory, so it ends whatever the
// thread holds.
void printStack(HANDLE thread);

}  // namespace tallow::test
