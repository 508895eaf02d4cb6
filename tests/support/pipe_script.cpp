#include "support/pipe_script.hpp"

namespace tallow::test {

PipeScript::Outcome PipeScript::read(std::size_t wanted) {
  ++reads_;
  if (steps_.empty()) return afterwards_;
  Outcome& step = steps_.front();
  if (step.data.size() > wanted) {
    Outcome part{.data = step.data.substr(0, wanted)};
    step.data.erase(0, wanted);
    return part;
  }
  Outcome whole = std::move(step);
  steps_.pop_front();
  return whole;
}

}  // namespace tallow::test
