#include "system/feeding_pipe.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace tallow::test {

FeedingPipe::FeedingPipe(std::string name, std::uint32_t bufferSize)
    : name_(std::move(name)), end_(PipeEnd::serve(name_, bufferSize)) {}

FeedingPipe::~FeedingPipe() {
  join();
  CloseHandle(allGiven_);
}

void FeedingPipe::feed(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
                       std::function<void()> onByte) {
  thread_.emplace([this, data, piece, at, onByte = std::move(onByte)] {
    try {
      end_.waitForReader();
      write(data, piece, at, onByte);
    } catch (const std::runtime_error&) {
      // The reader has gone, perhaps before it was seen.
    }
    end_.close();
    SetEvent(allGiven_);
  });
}

void FeedingPipe::write(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
                        const std::function<void()>& onByte) {
  if (at == 0) onByte();
  for (std::size_t done = 0; done < data.size();) {
    std::size_t count = std::min(piece, data.size() - done);
    if (at && done < *at) count = std::min(count, *at - done);
    end_.write(data.substr(done, count));
    done += count;
    if (done == at) onByte();
  }
}

void FeedingPipe::waitUntilGivenTo(const Process& reader) const {
  const std::array<HANDLE, 2> events{allGiven_, reader.handle()};
  constexpr DWORD kLongest = 120'000;
  WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, kLongest);
}

void FeedingPipe::join() {
  if (!thread_) return;
  // If no reader ever came, the thread still waits for one.
  const HANDLE reader =
      CreateFileA(name_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (reader != INVALID_HANDLE_VALUE) CloseHandle(reader);
  thread_.reset();
}

}  // namespace tallow::test
