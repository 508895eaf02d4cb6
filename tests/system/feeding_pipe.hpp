// A writer that outlives its readers: it serves a pipe and may end the reading process while it
// writes.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "support/pipe_ends.hpp"
#include "support/process.hpp"

namespace tallow::test {

// Serves the pipe as soon as it is constructed; feed() begins to write.
class FeedingPipe {
 public:
  FeedingPipe(std::string name, std::uint32_t bufferSize);
  ~FeedingPipe();
  FeedingPipe(const FeedingPipe&) = delete;
  FeedingPipe& operator=(const FeedingPipe&) = delete;

  // Writes in pieces of at most `piece` bytes and closes the pipe, beside the test. Calls `onByte`
  // once `at` bytes have been written, if ever. `data` must live as long as the pipe.
  void feed(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
            std::function<void()> onByte);
  // Waits until everything has been written and the pipe closed, or the reader has ended.
  void waitUntilGivenTo(const Process& reader) const;
  // Call this when the reader is gone. It connects in place of a reader that never came.
  void join();

 private:
  void write(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
             const std::function<void()>& onByte);

  std::string name_;
  PipeEnd end_;
  HANDLE allGiven_ = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::optional<WriterThread> thread_;
};

}  // namespace tallow::test
