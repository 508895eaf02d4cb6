// The log as the rules require it: the lines of the levels that are on, with repeats folded.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace tallow::test {

struct ModelLine {
  int level;
  int id;
  std::string text;  // of trace lines; the count of a repeat summary; else empty
  bool operator==(const ModelLine&) const = default;
};
std::ostream& operator<<(std::ostream& out, const ModelLine& line);

class LogModel {
 public:
  // Init has succeeded: lines count from now on.
  void initialised(int level);
  int level() const { return level_; }

  void trace(const std::string& text, int level = 6) { add(level, 9999, text); }
  // `argument` distinguishes two messages of one id.
  void message(int level, int id, const std::string& argument = {});

  const std::vector<ModelLine>& lines() const { return lines_; }

 private:
  void add(int level, int id, const std::string& text);

  int level_ = 0;
  std::vector<ModelLine> lines_;
  std::string last_;
  int repeats_ = 0;
  int run_ = 0;
};

}  // namespace tallow::test
