#include "jobs/feed.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>

namespace tallow::bench {
namespace {

// Ends the process: without the writer, the reader would wait for ever.
[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "tallow-bench: the writer cannot %s, system error %lu\n", what,
               GetLastError());
  std::fflush(stderr);
  std::_Exit(1);
}

void writeAll(const std::string& pipeName, const Stream& stream, std::uint64_t total,
              std::uint32_t chunk) {
  const HANDLE pipe =
      CreateFileA(pipeName.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) giveUp("connect");
  for (std::uint64_t done = 0; done < total;) {
    const auto wanted = static_cast<DWORD>(std::min<std::uint64_t>(chunk, total - done));
    DWORD written = 0;
    if (!WriteFile(pipe, stream.at(done), wanted, &written, nullptr)) giveUp("write");
    done += written;
  }
  CloseHandle(pipe);
}

}  // namespace

Stream::Stream(std::size_t longestWindow) : bytes_(kPeriod + longestWindow) {
  std::mt19937 engine(1);
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    bytes_[i] = i < kPeriod ? static_cast<std::byte>(engine()) : bytes_[i - kPeriod];
  }
}

Feed::Feed(const std::string& pipeName, const Stream& stream, std::uint64_t total,
           std::uint32_t chunk)
    : thread_([=, &stream] { writeAll(pipeName, stream, total, chunk); }) {}

std::string newPipeName() {
  static unsigned count = 0;
  return R"(\\.\pipe\tallow-bench-)" + std::to_string(GetCurrentProcessId()) + "-" +
         std::to_string(++count);
}

}  // namespace tallow::bench
