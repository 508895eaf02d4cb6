// The log's repeat filter: every occurrence is reported once, and nothing is called a repeat that
// is none.
#include <string>

#include "diag/repeat_filter.hpp"
#include "fuzz_target.hpp"

TALLOW_FUZZ_TARGET(repeat_filter) {
  using tallow::diag::RepeatFilter;
  using tallow::fuzz::require;
  tallow::fuzz::Input input(data, size);
  RepeatFilter filter;
  std::string last;
  int untold = 0;  // occurrences of `last` that no line and no summary has reported yet
  int run = 0;     // occurrences of `last` in a row
  while (!input.empty()) {
    const std::size_t times = 1 + input.byte();
    std::string text(1 + input.byte() % 3, static_cast<char>('a' + input.byte() % 4));
    if (input.byte() % 16 == 0) text.resize(RepeatFilter::kTextSize - 1, 'z');
    for (std::size_t i = 0; i < times; ++i) {
      const RepeatFilter::Decision decision = filter.next(text);
      const bool repeat = text == last;
      require(decision.writeLine != repeat, "a line is written unless it repeats the last");
      if (repeat) {
        ++untold;
        ++run;
      }
      const bool due = repeat ? untold == RepeatFilter::kSummaryLimit : run > 1 && untold > 0;
      require(decision.summaryCount == (due ? untold : 0), "a summary tells what is untold");
      if (due) untold = 0;
      if (!repeat) {
        last = text;
        untold = run = 1;
      }
    }
  }
  return 0;
}
