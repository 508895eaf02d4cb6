// The run-time library's reserve for exceptions that are raised when memory has run out.
#pragma once

namespace tallow::diag {

// Uses the reserve once, while there is memory. Its lock takes memory at its first use: if that
// were when none is left, the failure to lock would be raised through the reserve again, without an
// end. To be called once, before anything can run out of memory.
void prepareExceptionReserve() noexcept;

// Gives the reserve's memory back, which nothing else does when the library is unloaded. No
// exception may be raised behind it.
void releaseExceptionReserve() noexcept;

}  // namespace tallow::diag
