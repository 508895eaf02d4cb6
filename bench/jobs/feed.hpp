// The data of a benchmark job and the thread that writes it.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

namespace tallow::bench {

// An endless stream. It repeats after a length that is not a multiple of any block size, so a block
// in the wrong place differs. Any window of up to `longestWindow` bytes can be read.
class Stream {
 public:
  explicit Stream(std::size_t longestWindow);

  const std::byte* at(std::uint64_t offset) const { return bytes_.data() + offset % kPeriod; }

 private:
  static constexpr std::size_t kPeriod = (1 << 20) + 4099;
  std::vector<std::byte> bytes_;
};

// Connects to an existing pipe, writes `total` bytes of a stream in chunks and closes it. The
// destructor waits for the writer.
class Feed {
 public:
  Feed(const std::string& pipeName, const Stream& stream, std::uint64_t total, std::uint32_t chunk);

 private:
  std::jthread thread_;
};

// A pipe name that no other benchmark process uses, a new one for each call.
std::string newPipeName();

}  // namespace tallow::bench
