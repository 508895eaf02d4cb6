// How the log sums up a text that comes several times in a row.
#include "diag/repeat_filter.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tallow::diag {
namespace {

// The lines of a log: a line's text, or "#n" for a summary of n.
std::vector<std::string> logged(const std::vector<std::string>& texts) {
  RepeatFilter filter;
  std::vector<std::string> lines;
  for (const std::string& text : texts) {
    const RepeatFilter::Decision decision = filter.next(text);
    if (decision.summaryCount != 0) lines.push_back('#' + std::to_string(decision.summaryCount));
    if (decision.writeLine) lines.push_back(text);
  }
  return lines;
}

std::vector<std::string> timesThen(int times, const std::string& then) {
  std::vector<std::string> texts(static_cast<std::size_t>(times), "a");
  if (!then.empty()) texts.push_back(then);
  return texts;
}

using Lines = std::vector<std::string>;

TEST(RepeatFilter, WritesDifferentTextsAsTheyAre) {
  EXPECT_EQ(logged({"a", "b", "a", "b"}), (Lines{"a", "b", "a", "b"}));
}

TEST(RepeatFilter, SumsUpARunBeforeTheNextText) {
  EXPECT_EQ(logged(timesThen(5, "b")), (Lines{"a", "#5", "b"}));
  EXPECT_EQ(logged(timesThen(2, "b")), (Lines{"a", "#2", "b"}));
  EXPECT_EQ(logged(timesThen(1, "b")), (Lines{"a", "b"}));
}

TEST(RepeatFilter, SumsUpEveryTwoHundredOccurrences) {
  EXPECT_EQ(logged(timesThen(199, "")), (Lines{"a"}));
  EXPECT_EQ(logged(timesThen(200, "")), (Lines{"a", "#200"}));
  EXPECT_EQ(logged(timesThen(200, "b")), (Lines{"a", "#200", "b"}));
  EXPECT_EQ(logged(timesThen(201, "b")), (Lines{"a", "#200", "#1", "b"}));
  EXPECT_EQ(logged(timesThen(400, "b")), (Lines{"a", "#200", "#200", "b"}));
  EXPECT_EQ(logged(timesThen(599, "b")), (Lines{"a", "#200", "#200", "#199", "b"}));
}

TEST(RepeatFilter, StartsAnewBehindASummary) {
  EXPECT_EQ(logged({"a", "a", "b", "a", "b", "b", "c"}),
            (Lines{"a", "#2", "b", "a", "b", "#2", "c"}));
}

TEST(RepeatFilter, ComparesTheLongestTextWhole) {
  const std::string longest(RepeatFilter::kTextSize - 1, 'x');
  const std::string other = longest.substr(1) + 'y';
  EXPECT_EQ(logged({longest, longest, other, longest}), (Lines{longest, "#2", other, longest}));
}

TEST(RepeatFilter, DoesNotTakeABeginningForTheWhole) {
  EXPECT_EQ(logged({"abc", "ab", "abcd"}), (Lines{"abc", "ab", "abcd"}));
}

// No occurrence is lost: a run's written line and the counts of its summaries add up to its length.
TEST(RepeatFilter, TellsOfEveryOccurrence) {
  std::mt19937 engine(20261121);
  std::uniform_int_distribution<int> length(1, 700);
  for (int round = 0; round < 200; ++round) {
    const int times = length(engine);
    const Lines lines = logged(timesThen(times, "b"));
    int told = 0;
    for (const std::string& line : lines) {
      if (line[0] == '#') told += std::stoi(line.substr(1));
    }
    EXPECT_EQ(told, times == 1 ? 0 : times);
    EXPECT_EQ(lines.front(), "a");
    EXPECT_EQ(lines.back(), "b");
  }
}

}  // namespace
}  // namespace tallow::diag
