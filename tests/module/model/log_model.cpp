#include "module/model/log_model.hpp"

namespace tallow::test {

std::ostream& operator<<(std::ostream& out, const ModelLine& line) {
  return out << "{level " << line.level << ", id " << line.id << ", \"" << line.text << "\"}";
}

void LogModel::initialised(int level) {
  constexpr int kLinesOfInit = 5;
  // The old level decides about its request line, the new level about the lines of its options. A
  // log that was off begins with the banner.
  const bool wrote = level_ >= kLinesOfInit || level >= kLinesOfInit || level_ == 0;
  lines_.clear();
  level_ = level;
  if (!wrote) return;
  last_.clear();
  repeats_ = run_ = 0;
}

void LogModel::message(int level, int id, const std::string& argument) {
  add(level, id, "message " + std::to_string(id) + ' ' + argument);
}

void LogModel::add(int level, int id, const std::string& text) {
  if (level > level_) return;
  const bool repeated = text == last_;
  if (repeated) {
    ++repeats_;
    ++run_;
  }
  if ((!repeated && repeats_ > 0 && run_ > 1) || repeats_ == 200) {
    lines_.push_back({level, 78, std::to_string(repeats_)});
    repeats_ = 0;
  }
  if (repeated) return;
  lines_.push_back({level, id, id == 9999 ? text : std::string()});
  last_ = text;
  repeats_ = 1;
  run_ = 1;
}

}  // namespace tallow::test
