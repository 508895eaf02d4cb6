// A writer that outlives its readers: it serves a pipe and may end the reading process on its way.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tallow::test {

// A program that runs beside the test; ended at the latest with the scope.
class Process {
 public:
  static constexpr unsigned kEnded = 0xdead;

  // Its output goes to the file `said`.
  Process(const std::vector<std::string>& words, const std::string& said);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void end() {
    if (TerminateProcess(handle_, kEnded)) ended_ = true;
  }
  // Whether end() has met it alive; its exit code need not say so when it was on its way out.
  bool wasEnded() const { return ended_; }
  HANDLE handle() const { return handle_; }
  // False when it still runs after that time.
  bool waitFor(DWORD milliseconds) const {
    return WaitForSingleObject(handle_, milliseconds) == WAIT_OBJECT_0;
  }
  // Waits for its end; a program that takes two minutes is ended.
  unsigned exitCode();

 private:
  HANDLE handle_ = nullptr;
  std::atomic<bool> ended_ = false;
};

// Serves the pipe from its construction on; feed() begins to write.
class FeedingPipe {
 public:
  FeedingPipe(std::string name, std::uint32_t bufferSize);
  ~FeedingPipe();
  FeedingPipe(const FeedingPipe&) = delete;
  FeedingPipe& operator=(const FeedingPipe&) = delete;

  // Writes in pieces of at most `piece` bytes and closes; calls `onByte` when `at` bytes have been
  // written, if ever. `data` must live as long as the pipe.
  void feed(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
            std::function<void()> onByte);
  // Waits until all has been given, and the end, or the reader has ended.
  void waitUntilGivenTo(const Process& reader) const;
  // To be called when the reader is gone: it takes the place of one that never came.
  void join();

 private:
  std::string name_;
  HANDLE handle_;
  bool isFeeding_ = false;
  HANDLE allGiven_ = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::thread thread_;
};

}  // namespace tallow::test
