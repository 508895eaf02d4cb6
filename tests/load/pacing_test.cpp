// When a checkpoint is due, and how long and how often a lost connection is tried again.
#include "load/job/pacing.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

using std::chrono::milliseconds;

constexpr CheckpointPacer::Time kStart{std::chrono::hours(1)};

TEST(Pacer, CountsBlocks) {
  CheckpointPacer pacer(2);
  pacer.startAt(0, kStart);
  pacer.delivered(1, kStart);
  EXPECT_FALSE(pacer.due());
  pacer.delivered(2, kStart);
  EXPECT_TRUE(pacer.due());
  pacer.committed(2, kStart);
  EXPECT_FALSE(pacer.due());
}

TEST(Pacer, WaitsForANewBlockAfterGoingBack) {
  CheckpointPacer pacer(1);
  pacer.startAt(0, kStart);
  for (std::uint64_t block = 1; block <= 3; ++block) pacer.delivered(block, kStart);
  pacer.wentBack(1);
  for (std::uint64_t block = 1; block <= 3; ++block) {
    pacer.delivered(block, kStart);
    EXPECT_FALSE(pacer.due()) << block;
  }
  pacer.delivered(4, kStart);
  EXPECT_TRUE(pacer.due());
}

TEST(Pacer, CountsFromWhereARestartBegins) {
  CheckpointPacer pacer(2);
  pacer.startAt(10, kStart);
  pacer.delivered(11, kStart);
  EXPECT_FALSE(pacer.due());
  pacer.delivered(12, kStart);
  EXPECT_TRUE(pacer.due());
}

TEST(Pacer, CommitsWhatArrivesLongAfterTheLastCommit) {
  constexpr auto kLongest = CheckpointPacer::kLongestTransaction;
  CheckpointPacer pacer(100);
  pacer.startAt(0, kStart);
  pacer.delivered(1, kStart + kLongest - milliseconds(1));
  EXPECT_FALSE(pacer.due());
  pacer.delivered(2, kStart + kLongest);
  EXPECT_TRUE(pacer.due());
  pacer.committed(2, kStart + kLongest);
  pacer.delivered(3, kStart + 2 * kLongest - milliseconds(1));
  EXPECT_FALSE(pacer.due());
  pacer.wentBack(2);
  pacer.delivered(3, kStart + 3 * kLongest);
  EXPECT_FALSE(pacer.due()) << "a replayed block";
  pacer.delivered(4, kStart + 3 * kLongest);
  EXPECT_TRUE(pacer.due());
}

TEST(Retry, GrowsItsPauses) {
  RetryBudget budget(milliseconds(1000));
  EXPECT_EQ(budget.nextPause(), milliseconds(100));
  EXPECT_EQ(budget.nextPause(), milliseconds(200));
  EXPECT_EQ(budget.nextPause(), milliseconds(400));
  EXPECT_EQ(budget.nextPause(), milliseconds(300));
  EXPECT_EQ(budget.nextPause(), std::nullopt);
}

TEST(Retry, CountsTheAttemptsToo) {
  RetryBudget budget(milliseconds(1000));
  budget.nextPause();
  budget.spend(milliseconds(900));
  EXPECT_EQ(budget.nextPause(), std::nullopt);
}

TEST(Retry, BeginsAnewAfterACommit) {
  RetryBudget budget(milliseconds(100));
  budget.nextPause();
  budget.renew();
  EXPECT_EQ(budget.nextPause(), milliseconds(100));
}

TEST(Retry, TriesNotAtAllWithoutTime) {
  EXPECT_EQ(RetryBudget(milliseconds(0)).nextPause(), std::nullopt);
}

}  // namespace
}  // namespace tallow::load
