// Which job may begin, and what a loader finds in the job's row after a reconnection.
#include "load/job/protocol.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

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

}  // namespace
}  // namespace tallow::load
