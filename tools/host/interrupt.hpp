// Ctrl-C during a job.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "common/tool_error.hpp"
#include "common/unique_handle.hpp"

namespace tallow::host {

/// Notes the first Ctrl-C and ends the module's request that is blocked at that moment; a second
/// one ends the process. One object at a time, made on the thread that calls the module.
class Interrupt {
 public:
  Interrupt();
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  bool requested() const noexcept { return requested_; }
  /// With which status a second Ctrl-C ends the process.
  void setForcedStatus(tools::ExitStatus status) noexcept { forcedStatus_ = status; }

  /// While one lives, the thread is inside a request that may be cancelled. Nothing else that the
  /// thread does is ever cancelled: it could be a write that must not fail.
  class Cancellable {
   public:
    explicit Cancellable(Interrupt& interrupt) : interrupt_(interrupt) { set(true); }
    ~Cancellable() { set(false); }
    Cancellable(const Cancellable&) = delete;
    Cancellable& operator=(const Cancellable&) = delete;

   private:
    void set(bool cancellable);
    Interrupt& interrupt_;
  };

 private:
  static BOOL WINAPI onControl(DWORD event);
  void cancelUntilReturned();

  tools::UniqueHandle caller_;
  tools::UniqueHandle wake_;
  std::atomic<bool> requested_ = false;
  std::atomic<bool> ending_ = false;
  std::atomic<tools::ExitStatus> forcedStatus_ = tools::ExitStatus::kFailed;
  std::mutex mutex_;
  bool cancellable_ = false;  // guarded by mutex_
  std::thread canceller_;
};

}  // namespace tallow::host
