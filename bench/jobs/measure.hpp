// Time and memory of this process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace tallow::bench {

class Stopwatch {
 public:
  Stopwatch() : start_(now()) {}
  double seconds() const { return now() - start_; }

 private:
  static double now();
  double start_;
};

std::uint64_t workingSet();  // bytes
double processorTime();      // seconds, of all threads

// What one run of a loop took.
struct Timing {
  double seconds = 0;
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Timing, seconds, bytes, blocks)

}  // namespace tallow::bench
