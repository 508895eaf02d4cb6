// Amounts, rates, times and counts as the programs print them.
#include "common/formatting.hpp"

#include <gtest/gtest.h>

namespace tallow::tools {
namespace {

TEST(FormatBytes, CountsSmallAmountsExactly) {
  EXPECT_EQ(formatBytes(0), "0 B");
  EXPECT_EQ(formatBytes(999), "999 B");
}

TEST(FormatBytes, RoundsToOneDigit) {
  EXPECT_EQ(formatBytes(1000), "1.0 KB");
  EXPECT_EQ(formatBytes(268435456), "268.4 MB");
}

TEST(FormatBytes, GoesToTheNextUnitRatherThanToAThousand) {
  EXPECT_EQ(formatBytes(999'949), "999.9 KB");
  EXPECT_EQ(formatBytes(999'950), "1.0 MB");
}

TEST(FormatBytes, HoldsTheLargestAmount) {
  EXPECT_EQ(formatBytes(~0ULL), "18.4 EB");
}

TEST(FormatRate, IsUnknownWithoutTime) {
  EXPECT_EQ(formatRate(5, 0), "-");
}

TEST(FormatRate, DividesByTheTime) {
  EXPECT_EQ(formatRate(3'000'000, 2), "1.5 MB/s");
}

TEST(FormatDuration, ShowsMinutesAndSeconds) {
  EXPECT_EQ(formatDuration(-1), "0:00");
  EXPECT_EQ(formatDuration(7.4), "0:07");
  EXPECT_EQ(formatDuration(754), "12:34");
}

TEST(FormatDuration, ShowsHoursWhenThereAreAny) {
  EXPECT_EQ(formatDuration(3723), "1:02:03");
}

TEST(FormatCount, GroupsDigitsAndKnowsThePlural) {
  EXPECT_EQ(formatCount(1, "block"), "1 block");
  EXPECT_EQ(formatCount(0, "block"), "0 blocks");
  EXPECT_EQ(formatCount(999, "byte"), "999 bytes");
  EXPECT_EQ(formatCount(1234567, "byte"), "1,234,567 bytes");
}

}  // namespace
}  // namespace tallow::tools
