// What a pipe returns to one ReadFile after another. The model and the hook that replaces the
// module's ReadFile each play a copy.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <utility>

namespace tallow::test {

// The steps are put together in a row: PipeScript().data("half").error(ERROR_NO_DATA).data("rest").
class PipeScript {
 public:
  // What one read got. An error of 0 is success; success without data is a writer's empty write.
  struct Outcome {
    std::string data;
    unsigned error = 0;
    int seconds = 0;  // that the read takes
  };

  PipeScript& data(std::string bytes) { return add({.data = std::move(bytes)}); }
  PipeScript& emptyWrite() { return add({}); }
  PipeScript& error(unsigned error, int seconds = 0) { return add({{}, error, seconds}); }
  // After the script, every read fails so. Unless this is called, the writer has closed (error
  // 109).
  PipeScript& thenAlwaysError(unsigned error, int seconds = 0) {
    afterwards_ = {{}, error, seconds};
    return *this;
  }

  // One read of at most `wanted` bytes. If it takes only a part of a piece of data, the next read
  // gets the rest.
  Outcome read(std::size_t wanted);

  std::size_t stepsLeft() const { return steps_.size(); }
  std::size_t reads() const { return reads_; }

 private:
  static constexpr unsigned kBrokenPipe = 109;

  PipeScript& add(Outcome step) {
    steps_.push_back(std::move(step));
    return *this;
  }

  std::deque<Outcome> steps_;
  Outcome afterwards_{{}, kBrokenPipe};
  std::size_t reads_ = 0;
};

}  // namespace tallow::test
