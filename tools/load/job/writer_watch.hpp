// Ends requests of the module that the writer keeps waiting.
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

// Watches the waits of the load's thread from a separate thread. The module gives up a request only
// in some cases, so the end of the wait is the end of the process. The position of the load
// survives it.
class WriterWatch {
 public:
  // `giveUp` gets the reason. It is called on the watch's thread, and must end the process. The
  // load's thread waits meanwhile.
  WriterWatch(const tools::WriterWait& wait, std::function<void(const std::string&)> giveUp);
  ~WriterWatch();
  WriterWatch(const WriterWatch&) = delete;
  WriterWatch& operator=(const WriterWatch&) = delete;

  // While one exists, the load's thread waits for this many blocks. One at a time.
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
  std::mutex mutex_;          // guards the members below
  std::uint64_t blocks_ = 0;  // 0: not waiting
  Clock::time_point began_;
  std::thread thread_;
};

}  // namespace tallow::load
