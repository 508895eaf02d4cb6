// What --max-rejects may say, and when bad rows are too many.
#include "load/job/reject_limit.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

TEST(RejectLimit, IsNoneUnlessItIsGiven) {
  EXPECT_TRUE(RejectLimit().isNone());
  EXPECT_TRUE(RejectLimit().allows(0, 5));
  EXPECT_FALSE(RejectLimit().allows(1, 5));
}

TEST(RejectLimit, IsANumberOfRows) {
  const RejectLimit limit = RejectLimit::parse("3").value();
  EXPECT_TRUE(limit.allows(3, 3));
  EXPECT_FALSE(limit.allows(4, 1'000'000));
  EXPECT_TRUE(limit.allowsAtEnd(3, 3));
  EXPECT_EQ(limit.text(), "3");
  EXPECT_TRUE(RejectLimit::parse("0").value().isNone());
}

TEST(RejectLimit, IsAShareOfAllRowsAtTheEnd) {
  const RejectLimit limit = RejectLimit::parse("1%").value();
  EXPECT_FALSE(limit.isNone());
  EXPECT_TRUE(limit.allowsAtEnd(0, 0));
  EXPECT_FALSE(limit.allowsAtEnd(1, 99));
  EXPECT_TRUE(limit.allowsAtEnd(1, 100));
  EXPECT_TRUE(limit.allowsAtEnd(20'000'000, 2'000'000'099));
  EXPECT_FALSE(limit.allowsAtEnd(20'000'001, 2'000'000'099));
  EXPECT_TRUE(RejectLimit::parse("100%").value().allowsAtEnd(7, 7));
}

TEST(RejectLimit, LetsTenRowsBeBadOnTheWay) {
  const RejectLimit limit = RejectLimit::parse("1%").value();
  EXPECT_TRUE(limit.allows(10, 10));
  EXPECT_FALSE(limit.allows(11, 1099));
  EXPECT_TRUE(limit.allows(11, 1100));
}

TEST(RejectLimit, HasUpToFourDigitsAfterThePoint) {
  EXPECT_TRUE(RejectLimit::parse("0.0001%").value().allowsAtEnd(1, 1'000'000));
  EXPECT_FALSE(RejectLimit::parse("0.0001%").value().allowsAtEnd(1, 999'999));
  EXPECT_TRUE(RejectLimit::parse("12.5%").value().allowsAtEnd(1, 8));
}

TEST(RejectLimit, IsNothingElse) {
  for (const char* text : {"", "-1", "+1", "1 ", "1e3", "1000000001", "%", "0%", "0.0%", "1.%",
                           ".5%", "-1%", "101%", "100.0001%", "0.00001%", "1%%", "one"}) {
    EXPECT_FALSE(RejectLimit::parse(text).has_value()) << text;
  }
}

}  // namespace
}  // namespace tallow::load
