// What the C++ run-time library needs to raise an exception. It replaces the library's own parts.
//
// Those make a lock, a thread-local variable and a reserve of memory when they are first used. Each
// unload then leaves behind two threads' handles, some blocks and a thread-local slot, and if
// memory has run out by the first use, the host's process ends. The parts here need none of this.
#pragma once

namespace tallow::runtime {

// Remembers the thread that loads the library. Called once, at the start; an exception may be
// raised before it.
void startExceptionRuntime() noexcept;

// Frees what is kept for other threads. Called at the end; the loading thread may still raise an
// exception after it.
void endExceptionRuntime() noexcept;

}  // namespace tallow::runtime
