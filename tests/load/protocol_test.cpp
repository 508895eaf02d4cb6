#include "load/job/protocol.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

using std::chrono::milliseconds;

const JobSettings kSettings{"\\\\.\\pipe\\p", "t", ',', std::nullopt, ""};

JobRecord record(std::uint64_t position, std::uint64_t rows, std::uint64_t number,
                 bool done = false) {
  JobRecord made{kSettings, {}, number};
  made.progress.position = position;
  made.progress.rows = rows;
  made.progress.done = done;
  return made;
}

Beginning::Kind kindOf(RunMode mode, const std::optional<JobRecord>& recorded,
                       std::uint64_t tableRows = 0, const JobSettings& settings = kSettings) {
  return decideBeginning(mode, "job", recorded, settings, tableRows).kind;
}

TEST(Begin, MakesANewJob) {
  EXPECT_EQ(kindOf(RunMode::kNew, std::nullopt), Beginning::Kind::kFromTheStart);
}

TEST(Begin, RefusesANewRunOfAJobThatIsNotDone) {
  EXPECT_EQ(kindOf(RunMode::kNew, record(0, 0, 1)), Beginning::Kind::kRefused);
}

TEST(Begin, LetsAJobThatIsDoneBeginAgain) {
  EXPECT_EQ(kindOf(RunMode::kNew, record(9, 5, 1, true)), Beginning::Kind::kFromTheStart);
}

TEST(Begin, GoesOnAtARestart) {
  EXPECT_EQ(kindOf(RunMode::kRestart, record(9, 5, 1)), Beginning::Kind::kGoOn);
}

TEST(Begin, RefusesARestartWithoutCheckpoint) {
  EXPECT_EQ(kindOf(RunMode::kRestart, std::nullopt), Beginning::Kind::kRefused);
}

TEST(Begin, FindsNothingLeftOfAJobThatIsDone) {
  EXPECT_EQ(kindOf(RunMode::kRestart, record(9, 5, 1, true)), Beginning::Kind::kAlreadyDone);
}

TEST(Begin, RefusesARestartWithAnySettingChanged) {
  for (int i = 0; i < 5; ++i) {
    JobSettings other = kSettings;
    if (i == 0) other.pipe = "\\\\.\\pipe\\q";
    if (i == 1) other.table = "u";
    if (i == 2) other.delimiter = ';';
    if (i == 3) other.nullText = "";
    if (i == 4) other.init = "Block_size=1";
    EXPECT_EQ(kindOf(RunMode::kRestart, record(9, 5, 1), 0, other), Beginning::Kind::kRefused) << i;
  }
}

TEST(Begin, RefusesToStartOverWhileTheRowsAreThere) {
  const Beginning beginning =
      decideBeginning(RunMode::kStartOver, "job", record(9, 5, 1), kSettings, 7);
  EXPECT_EQ(beginning.kind, Beginning::Kind::kRefused);
  EXPECT_NE(beginning.reason.find("remove those 5"), std::string::npos) << beginning.reason;
}

TEST(Begin, StartsOverWhenTheTableIsEmpty) {
  EXPECT_EQ(kindOf(RunMode::kStartOver, record(9, 5, 1), 0), Beginning::Kind::kFromTheStart);
}

TEST(Begin, StartsOverWhenTheJobCommittedNoRow) {
  EXPECT_EQ(kindOf(RunMode::kStartOver, record(0, 0, 1), 7), Beginning::Kind::kFromTheStart);
}

// A loader at position 4 that got no answer to its commit of position 8.
Belief doubtful() {
  Belief belief;
  belief.committed = record(4, 40, 0).progress;
  belief.commitNumber = 3;
  belief.inDoubt = record(8, 80, 0).progress;
  return belief;
}

TEST(Reconnect, GoesBackWhenTheCommitDidNotHappen) {
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(4, 40, 4)), AfterReconnection::kGoBack);
}

TEST(Reconnect, StaysWhenTheCommitHappened) {
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(8, 80, 5)), AfterReconnection::kStayHere);
}

TEST(Reconnect, IsFinishedWhenTheLastCommitHappened) {
  Belief belief = doubtful();
  belief.inDoubt->done = true;
  EXPECT_EQ(decideAfterReconnection(belief, record(8, 80, 5, true)), AfterReconnection::kFinished);
}

TEST(Reconnect, TellsTheEndFromACheckpointAtTheSameBlock) {
  Belief belief = doubtful();
  belief.inDoubt = belief.committed;
  belief.inDoubt->done = true;
  EXPECT_EQ(decideAfterReconnection(belief, record(4, 40, 4)), AfterReconnection::kGoBack);
}

TEST(Reconnect, GoesBackWhenNothingWasInDoubt) {
  Belief belief = doubtful();
  belief.inDoubt.reset();
  EXPECT_EQ(decideAfterReconnection(belief, record(4, 40, 4)), AfterReconnection::kGoBack);
}

TEST(Reconnect, FindsAnotherLoadersClaim) {
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(4, 40, 5)), AfterReconnection::kTaken);
}

TEST(Reconnect, ForgivesItsOwnUnansweredClaims) {
  Belief belief = doubtful();
  belief.unansweredClaims = 2;
  EXPECT_EQ(decideAfterReconnection(belief, record(4, 40, 6)), AfterReconnection::kGoBack);
  EXPECT_EQ(decideAfterReconnection(belief, record(4, 40, 7)), AfterReconnection::kTaken);
}

TEST(Reconnect, FindsAPositionThatIsNotItsOwn) {
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(6, 60, 4)), AfterReconnection::kTaken);
}

TEST(Reconnect, ForgivesItsOwnUnansweredClaimsAfterTheCommit) {
  Belief belief = doubtful();
  belief.unansweredClaims = 1;
  EXPECT_EQ(decideAfterReconnection(belief, record(8, 80, 6)), AfterReconnection::kStayHere);
  EXPECT_EQ(decideAfterReconnection(belief, record(8, 80, 7)), AfterReconnection::kTaken);
}

TEST(Reconnect, FindsADatabaseThatHasGoneBackInTime) {
  // The claim has made 3 of the 2 that the database remembers: the commit with number 3 is gone.
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(2, 20, 3)), AfterReconnection::kLostCommits);
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(4, 40, 2)), AfterReconnection::kLostCommits);
  EXPECT_EQ(decideAfterReconnection(doubtful(), record(8, 80, 1)), AfterReconnection::kLostCommits);
}

TEST(Reconnect, TellsACommitFromAnotherLoadersClaim) {
  Belief belief = doubtful();
  belief.inDoubt = belief.committed;
  EXPECT_EQ(decideAfterReconnection(belief, record(4, 40, 5)), AfterReconnection::kStayHere);
  EXPECT_EQ(decideAfterReconnection(belief, record(4, 40, 6)), AfterReconnection::kTaken);
}

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
  using std::chrono::milliseconds;
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
