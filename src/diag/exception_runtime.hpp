// What the C++ run-time library needs to raise an exception, in the place of its own parts.
//
// Those take a lock, a thread-local variable and a reserve of memory, all made at their first use:
// two threads' handles, some blocks and a thread-local slot that stay behind at each unload, and
// the end of the host's process if memory has run out by then. These need nothing to be made.
#pragma once

namespace tallow::diag {

// Tells the thread that loads the library from all others. Called once, at the start; an exception
// may be raised before it.
void startExceptionRuntime() noexcept;

// Gives back what other threads hold. Called at the end; an exception may be raised behind it, from
// the loading thread.
void endExceptionRuntime() noexcept;

}  // namespace tallow::diag
