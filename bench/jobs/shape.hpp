// What a benchmark job looks like.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace tallow::bench {

struct Shape {
  std::string loop = "module";  // or "floor"
  std::uint64_t blockSize = 1 << 20;
  std::uint64_t total = 128 << 20;
  std::uint32_t chunk = 1 << 20;       // bytes that the writer writes at a time
  bool fullBlocks = true;              // Need_Full_Block
  std::uint64_t checkpointEvery = 64;  // blocks
  int logLevel = 2;
  bool commit = false;  // floor only: bring the file to the disk at each checkpoint
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Shape, loop, blockSize, total, chunk, fullBlocks,
                                                checkpointEvery, logLevel, commit)

}  // namespace tallow::bench
