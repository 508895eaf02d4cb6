// A writer that outlives its readers: it serves a pipe and may end the reading process while it
// writes.
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

// A program that runs beside the test. The destructor ends it if it still runs.
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
  // True if end() found it alive. Its exit code need not show this, if it was just about to end.
  bool wasEnded() const { return ended_; }
  HANDLE handle() const { return handle_; }
  // False if it still runs after that time.
  bool waitFor(DWORD milliseconds) const {
    return WaitForSingleObject(handle_, milliseconds) == WAIT_OBJECT_0;
  }
  // Waits for its end; a program that takes two minutes is ended.
  unsigned exitCode();

 private:
  HANDLE handle_ = nullptr;
  std::atomic<bool> ended_ = false;
};

// Serves the pipe as soon as it is constructed; feed() begins to write.
class FeedingPipe {
 public:
  FeedingPipe(std::string name, std::uint32_t bufferSize);
  ~FeedingPipe();
  FeedingPipe(const FeedingPipe&) = delete;
  FeedingPipe& operator=(const FeedingPipe&) = delete;

  // Writes in pieces of at most `piece` bytes and closes the pipe. Calls `onByte` once `at` bytes
  // have been written, if ever. `data` must live as long as the pipe.
  void feed(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
            std::function<void()> onByte);
  // Waits until everything has been written and the pipe closed, or the reader has ended.
  void waitUntilGivenTo(const Process& reader) const;
  // Call this when the reader is gone. It connects in place of a reader that never came.
  void join();

 private:
  std::string name_;
  HANDLE handle_;
  bool isFeeding_ = false;
  HANDLE allGiven_ = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::thread thread_;
};

}  // namespace tallow::test
