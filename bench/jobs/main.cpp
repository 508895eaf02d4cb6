// tallow-bench: jobs through the module and bare loops beside them. The request comes as JSON on
// standard input, {"scenario": name, "scratch": folder, ...}; the samples go to standard output.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <map>

#include "jobs/floor.hpp"
#include "jobs/scenarios.hpp"
#include "support/surroundings.hpp"

namespace tallow::bench {
namespace {

std::size_t longestWindow(const Shape& shape) {
  return static_cast<std::size_t>(std::max<std::uint64_t>(shape.blockSize, shape.chunk));
}

Timing runEither(JobRunner& runner, const Shape& shape, const Stream& stream) {
  return shape.loop == "floor" ? runFloor(shape, stream, runner.scratch())
                               : runner.run(shape, stream);
}

}  // namespace

Json compare(JobRunner& runner, const Json& request) {
  const Shape a = request.at("a");
  const Shape b = request.at("b");
  const Stream stream(std::max(longestWindow(a), longestWindow(b)));
  Json result = {{"a", Json::array()}, {"b", Json::array()}};
  for (int pair = 0; pair < request.at("pairs"); ++pair) {
    // The two take turns to go first.
    for (const bool isA : {pair % 2 == 0, pair % 2 != 0}) {
      result[isA ? "a" : "b"].push_back(runEither(runner, isA ? a : b, stream));
    }
  }
  return result;
}

Json watch(JobRunner& runner, const Json& request) {
  const Shape shape = request.at("shape");
  const std::uint64_t sampleEvery = request.at("sampleEvery");
  const Stream stream(longestWindow(shape));
  Json samples = Json::array();
  std::uint64_t checked = 0;
  std::uint64_t nextSample = sampleEvery;
  const double before = processorTime();
  const Timing timing = runner.run(shape, stream, [&](const std::byte* data, const Timing& now) {
    if (std::memcmp(data, stream.at(checked), now.bytes - checked) != 0) {
      throw std::runtime_error("block " + std::to_string(now.blocks) + " differs");
    }
    checked = now.bytes;
    if (now.bytes < nextSample) return;
    nextSample += sampleEvery;
    samples.push_back({{"bytes", now.bytes},
                       {"seconds", now.seconds},
                       {"processorTime", processorTime() - before},
                       {"workingSet", workingSet()},
                       {"handles", test::openHandles()}});
  });
  return {{"timing", timing},
          {"processorTime", processorTime() - before},
          {"samples", std::move(samples)}};
}

Json positions(JobRunner& runner, const Json& request) {
  Shape shape;
  shape.blockSize = request.at("blockSize");
  shape.total = shape.blockSize * request.at("blocks").get<std::uint64_t>();
  const Stream stream(longestWindow(shape));
  const std::string name = newPipeName();
  client::Module& module = runner.module();
  client::Instance job =
      module.open(module.init(initString(shape, runner.scratch()), "tallow-bench"), name);
  std::vector<std::byte> block(job.blockSize());
  const Feed feed(name, stream, shape.total, shape.chunk);
  Json samples = Json::array();
  while (!job.read(block).atEnd()) {
    const Stopwatch stopwatch;
    job.getPos();
    samples.push_back(stopwatch.seconds());
  }
  samples.erase(samples.begin());  // the first one created the file
  return {{"getPos", std::move(samples)}};
}

}  // namespace tallow::bench

int main() {
  using namespace tallow::bench;
  const std::map<std::string, Json (*)(JobRunner&, const Json&)> scenarios = {
      {"compare", compare},     {"watch", watch},         {"replay", replay},
      {"openClose", openClose}, {"positions", positions}, {"calls", calls}};
  try {
    const Json request = Json::parse(std::cin);
    JobRunner runner(request.at("scratch"));
    std::cout << scenarios.at(request.at("scenario"))(runner, request).dump() << std::endl;
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tallow-bench: %s\n", error.what());
    std::fflush(stderr);
    std::_Exit(1);
  }
}
