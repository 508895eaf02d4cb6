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

/// Notes the first Ctrl-C, or the end of the time that a request may take, and ends the module's
/// request that is blocked at that moment. A request that cannot be ended is the end of the
/// process: at a second Ctrl-C, or when its time is over. One object at a time, made on the thread
/// that calls the module.
class Interrupt {
 public:
  using Clock = std::chrono::steady_clock;
  /// Whether a request that has taken so long has taken too long.
  using Patience = std::function<bool(Clock::duration)>;
  /// The last words, before the process is ended with the status returned. `insideRequest`: the
  /// calling thread is inside a request of the module and stays there meanwhile.
  using LastWords = std::function<unsigned(EndReason, bool insideRequest)>;

  explicit Interrupt(LastWords lastWords);
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  bool requested() const noexcept { return reason_ != EndReason::kNone; }
  EndReason reason() const noexcept { return reason_; }

  /// While one lives, the thread is inside a request that may be cancelled. Nothing else that the
  /// thread does is ever cancelled: it could be a write that must not fail.
  class Cancellable {
   public:
    /// `patience` may be empty: the request may take for ever.
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
  std::mutex mutex_;  // guards what follows
  bool insideRequest_ = false;
  Patience patience_;
  Clock::time_point requestStart_;
  Clock::time_point cancelStart_;
  bool cancelling_ = false;
  bool advised_ = false;
  std::thread watcher_;
};

}  // namespace tallow::host
