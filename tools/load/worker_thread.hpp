// A thread that does one piece of work after the other for the thread that owns it.
#pragma once

#include <windows.h>

#include <exception>
#include <functional>

#include "common/unique_handle.hpp"

namespace tallow::load {

/// The system's own events wake the two threads. With the condition variables of the compiler's
/// thread library one load in a thousand stood still for ever, both threads waiting.
class WorkerThread {
 public:
  /// Throws ToolError when there can be no thread.
  WorkerThread();
  /// Ends the thread; there must be no work under way.
  ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  /// Begins a piece of work. The one before must have been waited for.
  void begin(std::function<void()> work);
  /// Waits for the work and throws what it has thrown.
  void wait();
  /// Interrupts what the work waits for in the system, again and again, until it has ended; what it
  /// throws is forgotten.
  void interrupt() noexcept;

 private:
  static unsigned __stdcall main(void* self);
  void serve();

  std::function<void()> work_;  // empty: the thread is to end
  std::exception_ptr failure_;
  tools::UniqueHandle begun_;  // events, each for one wait
  tools::UniqueHandle done_;
  tools::UniqueHandle thread_;
};

}  // namespace tallow::load
