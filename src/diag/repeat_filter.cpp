#include "diag/repeat_filter.hpp"

#include <algorithm>
#include <cstring>

namespace tallow::diag {

RepeatFilter::Decision RepeatFilter::next(std::string_view text) noexcept {
  const bool repeat = text == std::string_view(lastText_, lastLength_);
  if (repeat) {
    ++repeatCount_;
    ++runCount_;
  }
  Decision decision{0, !repeat};
  if ((!repeat && repeatCount_ > 0 && runCount_ > 1) || repeatCount_ == kSummaryLimit) {
    decision.summaryCount = repeatCount_;
    repeatCount_ = 0;
  }
  if (!repeat) {
    lastLength_ = std::min(text.size(), kTextSize - 1);
    std::memcpy(lastText_, text.data(), lastLength_);
    repeatCount_ = 1;
    runCount_ = 1;
  }
  return decision;
}

}  // namespace tallow::diag
