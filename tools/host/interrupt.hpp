// What ends a job before its data does: Ctrl-C, or a writer that keeps it waiting too long.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "common/unique_handle.hpp"

namespace tallow::host {

enum class EndReason { kNone, kCtrlC, kWaitOver };

// Notes the first Ctrl-C, or that a request has taken too long, and cancels the module's request
// that is blocked then. If a request cannot be cancelled, the process ends: at a second Ctrl-C, or
// when the request's time is over. There may be only one object at a time, made on the thread that
// calls the module.
class Interrupt {
 public:
  using Clock = std::chrono::steady_clock;
  // Whether a request has taken too long, given the time that it has taken.
  using Patience = std::function<bool(Clock::duration)>;
  // Prints the last words before the process ends, and returns the status that it ends with.
  // `insideRequest`: the calling thread is inside a request of the module and stays there
  // meanwhile.
  using LastWords = std::function<unsigned(EndReason, bool insideRequest)>;

  explicit Interrupt(LastWords lastWords);
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  bool requested() const noexcept { return reason_ != EndReason::kNone; }
  EndReason reason() const noexcept { return reason_; }

  // While one exists, the thread is inside a request that may be cancelled. Nothing else that the
  // thread does is ever cancelled, because it could be a write that must not fail.
  class Cancellable {
   public:
    // If `patience` is empty, the request may take any time.
    Cancellable(Interrupt& interrupt, const Patience& patience);
    ~Cancellable();
    Cancellable(const Cancellable&) = delete;
    Cancellable& operator=(const Cancellable&) = delete;

   private:
    Interrupt& interrupt_;
  };

 private:
  static BOOL WINAPI onControl(DWORD event);
  void watch();
  void endRequest();
  [[noreturn]] void endProcess(bool insideRequest);

  LastWords lastWords_;
  tools::UniqueHandle caller_;
  tools::UniqueHandle wake_;
  std::atomic<EndReason> reason_ = EndReason::kNone;
  std::atomic<bool> ending_ = false;
  std::mutex mutex_;  // guards the members below
  bool insideRequest_ = false;
  Patience patience_;
  Clock::time_point requestStart_;
  Clock::time_point cancelStart_;
  bool cancelling_ = false;
  bool advised_ = false;
  std::thread watcher_;
};

}  // namespace tallow::host
