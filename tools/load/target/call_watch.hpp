// Ends calls that the database never answers.
#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::load {

// While one exists, a call of the database is running. One at a time.
class WatchedCall {
 public:
  WatchedCall() noexcept;
  ~WatchedCall();
  WatchedCall(const WatchedCall&) = delete;
  WatchedCall& operator=(const WatchedCall&) = delete;
};

// Watches the calls of the database from a separate thread. Drivers honour time limits only for
// some of their calls, or not at all, and one that waits for a silent server can't be interrupted.
class CallWatch {
 public:
  // `onSilence` is called on the watch's thread when a call has lasted for longer than `limit`. It
  // must end the process. Throws ToolError if the thread cannot be made.
  CallWatch(std::chrono::seconds limit, std::function<void()> onSilence);
  ~CallWatch();
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;

 private:
  static unsigned __stdcall main(void* self);
  void watch() const;

  std::chrono::milliseconds limit_;
  std::function<void()> onSilence_;
  tools::UniqueHandle ended_;
  tools::UniqueHandle thread_;
};

}  // namespace tallow::load
