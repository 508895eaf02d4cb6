// What a pipe returns to one ReadFile after another. The model and the hook that replaces the
// module's ReadFile each play a copy.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace tallow::test {

class PipeScript {
 public:
  // What one read got. An error of 0 is success; success without data is a writer's empty write.
  struct Outcome {
    std::string data;
    unsigned error = 0;
  };

  void data(std::string bytes) { steps_.push_back({std::move(bytes), 0}); }
  void emptyWrite() { steps_.push_back({{}, 0}); }
  void error(unsigned error) { steps_.push_back({{}, error}); }

  // One read of at most `wanted` bytes. If it takes only a part of a piece of data, the next read
  // gets the rest. After the script the writer has closed (error 109).
  Outcome read(std::size_t wanted);

  std::size_t stepsLeft() const { return steps_.size(); }
  std::size_t reads() const { return reads_; }

 private:
  std::deque<Outcome> steps_;
  std::size_t reads_ = 0;
};

}  // namespace tallow::test
