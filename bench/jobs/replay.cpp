#include <cstdio>
#include <stdexcept>

#include "fallback/fallback_format.hpp"
#include "fallback/md5.hpp"
#include "jobs/scenarios.hpp"

namespace tallow::bench {
namespace {

double replayThroughModule(client::Instance& job, std::vector<std::byte>& block,
                           std::uint64_t blocks) {
  const Stopwatch stopwatch;
  job.setPos(1);
  for (std::uint64_t i = 0; i < blocks; ++i) job.read(block);
  return stopwatch.seconds();
}

double readBare(const std::string& path, std::vector<std::byte>& block, std::uint64_t blocks) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) throw std::runtime_error("cannot open " + path);
  std::setvbuf(file, nullptr, _IONBF, 0);
  fallback::Md5Context digest;
  fallback::md5Init(digest);
  const Stopwatch stopwatch;
  _fseeki64(file, static_cast<long long>(fallback::kDataStartOffset), SEEK_SET);
  for (std::uint64_t i = 0; i < blocks; ++i) {
    if (std::fread(block.data(), 1, block.size(), file) != block.size()) {
      throw std::runtime_error("the fallback file is shorter than the job");
    }
    fallback::md5Update(digest, block.data(), block.size());
  }
  const double seconds = stopwatch.seconds();
  std::fclose(file);
  return seconds;
}

}  // namespace

Json replay(JobRunner& runner, const Json& request) {
  const std::uint64_t blocks = request.at("blocks");
  Shape shape;
  shape.total = blocks * shape.blockSize;
  const Stream stream(shape.blockSize);
  const std::string name = newPipeName();
  client::Module& module = runner.module();
  client::Instance job =
      module.open(module.init(initString(shape, runner.scratch()), "tallow-bench"), name);
  std::vector<std::byte> block(job.blockSize());
  const Feed feed(name, stream, shape.total, shape.chunk);
  for (std::uint64_t i = 0; i < blocks; ++i) {
    job.read(block);
    if (i == 0) job.getPos();
  }
  const std::string path = runner.scratch() + "\\bench.fbf";
  replayThroughModule(job, block, blocks);  // writes the last block to the file

  Json result = {{"module", Json::array()}, {"floor", Json::array()}, {"bytes", shape.total}};
  for (int pair = 0; pair < request.at("pairs"); ++pair) {
    for (const bool isModule : {pair % 2 == 0, pair % 2 != 0}) {
      result[isModule ? "module" : "floor"].push_back(
          isModule ? replayThroughModule(job, block, blocks) : readBare(path, block, blocks));
    }
  }
  job.read(block);  // the end of the data, so that Close removes the file
  return result;
}

}  // namespace tallow::bench
