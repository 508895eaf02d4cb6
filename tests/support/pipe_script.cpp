#include "support/pipe_script.hpp"

namespace tallow::test {

PipeScript::Outcome PipeScript::read(std::size_t wanted) {
  constexpr unsigned kBrokenPipe = 109;
  ++reads_;
  if (steps_.empty()) return {{}, kBrokenPipe};
  Outcome& step = steps_.front();
  if (step.data.size() > wanted) {
    Outcome part{step.data.substr(0, wanted), 0};
    step.data.erase(0, wanted);
    return part;
  }
  Outcome whole = std::move(step);
  steps_.pop_front();
  return whole;
}

}  // namespace tallow::test
