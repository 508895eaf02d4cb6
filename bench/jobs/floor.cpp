#include "jobs/floor.hpp"

#include <io.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <vector>

#include "fallback/md5.hpp"
#include "pipe/pause.hpp"
#include "pipe/unique_file_handle.hpp"

namespace tallow::bench {
namespace {

constexpr std::uint64_t kLongestPause = 10;  // milliseconds, the default of Pipe_Wait

class FloorPipe {
 public:
  FloorPipe(const std::string& name, const Shape& shape)
      : handle_(CreateNamedPipeA(name.c_str(), PIPE_ACCESS_INBOUND,
                                 shape.fullBlocks ? PIPE_WAIT : PIPE_NOWAIT, 4,
                                 static_cast<DWORD>(2 * shape.blockSize),
                                 static_cast<DWORD>(2 * shape.blockSize), 100, nullptr)) {
    if (!handle_) throw std::runtime_error("the floor's pipe cannot be made");
  }

  // Returns the number of bytes read, 0 at the end of the data.
  std::uint32_t readFull(std::byte* buffer, std::uint64_t blockSize) {
    std::uint32_t count = 0;
    while (count < blockSize) {
      Sleep(1);
      DWORD part = 0;
      if (ReadFile(handle_.get(), buffer + count, static_cast<DWORD>(blockSize - count), &part,
                   nullptr)) {
        count += part;
      } else if (GetLastError() != ERROR_PIPE_LISTENING) {
        break;
      }
    }
    return count;
  }

  std::uint32_t readAvailable(std::byte* buffer, std::uint64_t blockSize) {
    std::uint64_t pause = pipe::kFirstPause;
    for (;;) {
      Sleep(1);
      DWORD count = 0;
      if (ReadFile(handle_.get(), buffer, static_cast<DWORD>(blockSize), &count, nullptr)) {
        return count;
      }
      if (GetLastError() == ERROR_BROKEN_PIPE) return 0;
      Sleep(static_cast<DWORD>(pause));
      pause = pipe::nextPause(pause, kLongestPause);
    }
  }

 private:
  pipe::UniqueFileHandle handle_;
};

}  // namespace

Timing runFloor(const Shape& shape, const Stream& stream, const std::string& scratch) {
  const std::string name = newPipeName();
  const std::string path = scratch + "\\floor.fbf";
  FloorPipe pipe(name, shape);
  std::FILE* file = std::fopen(path.c_str(), "w+b");
  if (file == nullptr) throw std::runtime_error("the floor's file cannot be made: " + path);
  std::setvbuf(file, nullptr, _IONBF, 0);
  std::vector<std::byte> block(shape.blockSize);
  std::vector<std::byte> copy(shape.blockSize);
  fallback::Md5Context digest;
  fallback::md5Init(digest);

  const Feed feed(name, stream, shape.total, shape.chunk);
  Timing timing;
  std::optional<Stopwatch> watch;
  for (;;) {
    const std::uint32_t length = shape.fullBlocks
                                     ? pipe.readFull(block.data(), shape.blockSize)
                                     : pipe.readAvailable(block.data(), shape.blockSize);
    if (length == 0) break;
    fallback::md5Update(digest, block.data(), length);
    std::memcpy(copy.data(), block.data(), length);
    if (timing.blocks % shape.checkpointEvery == 0) {
      if (shape.commit) _commit(_fileno(file));
      _fseeki64(file, 0, SEEK_SET);
    }
    std::fwrite(copy.data(), 1, copy.size(), file);
    ++timing.blocks;
    timing.bytes += length;
    if (!watch) watch.emplace();
  }
  timing.seconds = watch ? watch->seconds() : 0;
  std::fclose(file);
  std::remove(path.c_str());
  return timing;
}

}  // namespace tallow::bench
