// A thread that does one piece of work after another for the thread that owns it.
#pragma once

#include <windows.h>

#include <exception>
#include <functional>

#include "common/unique_handle.hpp"

namespace tallow::load {

// The system's own events wake the two threads. With the condition variables of the compiler's
// thread library, one load in a thousand hung, with both threads waiting.
class WorkerThread {
 public:
  // Throws ToolError if the thread cannot be made.
  WorkerThread();
  // Ends the thread. There must be no work in progress.
  ~WorkerThread();
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // Begins a piece of work. The caller must have waited for the one before.
  void begin(std::function<void()> work);
  // Waits for the work and throws what it has thrown.
  void wait();
  // Interrupts the system call that the work waits in, again and again until the work has ended.
  // What the work throws is forgotten.
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
