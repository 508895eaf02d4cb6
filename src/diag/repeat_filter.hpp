// Decides which lines of the log are written, and when a run of equal ones is summed up.
#pragma once

#include <cstddef>
#include <string_view>

namespace tallow::diag {

// Remembers the last text and counts its repeats. Only texts are compared, not levels, ids or
// times. Allocates nothing.
class RepeatFilter {
 public:
  // Bytes of the longest text, NUL included.
  static constexpr std::size_t kTextSize = 1024;
  // A run of equal texts is summed up at least this often.
  static constexpr int kSummaryLimit = 200;

  struct Decision {
    int summaryCount;  // occurrences to sum up before the line; 0 = no summary
    bool writeLine;    // false for a repeat
  };

  // Takes the next text (at most kTextSize - 1 characters) and decides what to write for it.
  Decision next(std::string_view text) noexcept;

 private:
  char lastText_[kTextSize] = {};
  std::size_t lastLength_ = 0;
  int repeatCount_ = 0;  // occurrences since the text was last written or summed up
  int runCount_ = 0;     // occurrences in a row since the text was last written
};

}  // namespace tallow::diag
