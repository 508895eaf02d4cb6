// An end for requests of the module that the writer keeps waiting.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "common/unique_handle.hpp"
#include "common/writer_wait.hpp"

namespace tallow::load {

/// Looks at the waits of the load's thread from a thread of its own. The module gives a request up
/// only now and then, so the end of the wait is the end of the process; the position of the load
/// survives it.
class WriterWatch {
 public:
  /// `giveUp` gets the reason, on the watch's thread while the load's thread stands still; it must
  /// end the process.
  WriterWatch(const tools::WriterWait& wait, std::function<void(const std::string&)> giveUp);
  ~WriterWatch();
  WriterWatch(const WriterWatch&) = delete;
  WriterWatch& operator=(const WriterWatch&) = delete;

  /// While one lives, the load's thread waits for this many blocks. One at a time.
  class Wait {
   public:
    Wait(WriterWatch& watch, std::uint64_t blocks);
    ~Wait();
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

   private:
    WriterWatch& watch_;
  };

 private:
  using Clock = std::chrono::steady_clock;

  void look();

  tools::WriterWait wait_;
  std::function<void(const std::string&)> giveUp_;
  tools::UniqueHandle ended_;
  std::mutex mutex_;          // guards what follows
  std::uint64_t blocks_ = 0;  // 0: nothing is waited for
  Clock::time_point began_;
  std::thread thread_;
};

}  // namespace tallow::load
