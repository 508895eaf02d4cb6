#include "jobs/module_job.hpp"

#include <optional>
#include <stdexcept>
#include <vector>

namespace tallow::bench {

std::string initString(const Shape& shape, const std::string& scratch) {
  return "Log_level=" + std::to_string(shape.logLevel) + " Log_directory='" + scratch +
         "' Fallback_Directory='" + scratch +
         "' Fallback_file=bench.fbf Block_size=" + std::to_string(shape.blockSize) +
         (shape.fullBlocks ? "" : " Need_Full_Block=no");
}

JobRunner::JobRunner(std::string scratch)
    : scratch_(std::move(scratch)), module_(client::Module::besideProgram()) {}

Timing JobRunner::run(const Shape& shape, const Stream& stream,
                      const std::function<void(const std::byte*, const Timing&)>& afterBlock) {
  const std::string name = newPipeName();
  client::Instance job =
      module_.open(module_.init(initString(shape, scratch_), "tallow-bench"), name);
  std::vector<std::byte> block(job.blockSize());

  const Feed feed(name, stream, shape.total, shape.chunk);
  Timing timing;
  std::optional<Stopwatch> watch;
  for (;;) {
    const client::ReadResult read = job.read(block);
    if (read.atEnd()) break;
    if (timing.blocks % shape.checkpointEvery == 0) job.getPos();
    ++timing.blocks;
    timing.bytes += read.length;
    if (!watch) watch.emplace();
    if (afterBlock) {
      timing.seconds = watch->seconds();
      afterBlock(block.data(), timing);
    }
  }
  timing.seconds = watch ? watch->seconds() : 0;
  job.close();
  if (timing.bytes != shape.total) throw std::runtime_error("the job lost data");
  return timing;
}

}  // namespace tallow::bench
