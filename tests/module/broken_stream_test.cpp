// When the stream of a job breaks or its data changes, nothing wrong may be delivered.
#include "support/fallback_test.hpp"

namespace tallow::test {
namespace {

class ChangedData : public FallbackTest {
 protected:
  // A run with the data X up to block 4, then one with Y, which differs after block 2. Both died
  // after a checkpoint at block 4.
  void leaveTwoRuns() {
    openJob();
    deliver(2);
    checkpoint();
    deliver(2);
    checkpoint();
    reload();
    before_ = data;
    data[2 * kBlockSize + 3] ^= 1;
    openJob();
    goTo(2);
    deliver(3);
    log.newLines();
    ASSERT_EQ(checkpoint(), 4u);
  }

  std::string before_;
};

TEST_F(ChangedData, ReplacesTheSignatureOfItsCheckpoint) {
  leaveTwoRuns();
  EXPECT_EQ(older(), (SyncPoint{2, signature(2)}));
  EXPECT_EQ(newer(), (SyncPoint{4, signature(4)}));
  EXPECT_THAT(log.newEntries(), testing::Contains(trace(6, "Writing sync point for block 4.")));
}

TEST_F(ChangedData, IsWhatTheNextRestartMustMeet) {
  leaveTwoRuns();
  reload();
  openJob();
  goTo(4);
  deliver(3);
}

TEST_F(ChangedData, RefusesTheDataOfTheRunBefore) {
  leaveTwoRuns();
  reload();
  data = before_;
  openJob();
  EXPECT_EQ(host.setPos(4).code, pmrcDelivery);
}

TEST_F(ChangedData, WithoutSignaturesChangesNoCheckpoint) {
  openJob("Signature_check=0");
  deliver(2);
  checkpoint();
  log.newLines();
  checkpoint();
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptGetPos", 6),
                                            trace(6, "GetPos returns block no. 2.")));
}

class LostBytes : public FallbackTest {
 protected:
  // The system refuses to read after 10 bytes of block 3. The checkpoint is block 2.
  void loseBytes() {
    openJob();
    script() = PipeScript()
                   .data(data.substr(0, 2 * kBlockSize + 10))
                   .error(ERROR_OPERATION_ABORTED)
                   .data(data.substr(2 * kBlockSize + 10));
    deliver(2);
    checkpoint();
    const ReadAnswer answer = host.read();
    ASSERT_EQ(answer.code, pmrcFailed);
    ASSERT_EQ(answer.data, data.substr(2 * kBlockSize, 10));
    log.newLines();
  }
};

TEST_F(LostBytes, EndReadAndSetPosUntilClose) {
  loseBytes();
  const std::size_t reads = script().reads();
  for (int i = 0; i < 2; ++i) {
    const ReadAnswer read = host.read();
    EXPECT_EQ(read.code, pmrcDelivery);
    EXPECT_EQ(read.data, "");
    EXPECT_EQ(host.setPos(2).code, pmrcDelivery);
    EXPECT_EQ(host.setPos(kNoBlock, 5).code, pmrcDelivery);
  }
  const LogEntry read = requestLine("pmiPIDMOptRead", 4);
  const LogEntry setPos = requestLine("pmiPIDMOptSetPos", 7);
  EXPECT_THAT(log.newEntries(), ElementsAre(read, setPos, LogEntry{6, 78, {}}, read, setPos));
  EXPECT_EQ(script().reads(), reads);
  EXPECT_EQ(host.close().code, pmrcSuccess);
  EXPECT_TRUE(exists(path()));
}

TEST_F(LostBytes, LeaveTheLastWholeBlockAsACheckpoint) {
  loseBytes();
  EXPECT_EQ(checkpoint(), 2u);
  EXPECT_EQ(newer(), (SyncPoint{2, signature(2)}));
  EXPECT_EQ(host.close().code, pmrcSuccess);
  reload();
  openJob();
  goTo(2);
  deliverRest();
}

TEST_F(LostBytes, LetACheckpointMakeTheFile) {
  openJob();
  script() = PipeScript().data(data.substr(0, kBlockSize + 1)).error(ERROR_OPERATION_ABORTED);
  deliver(1);
  EXPECT_EQ(host.read().code, pmrcFailed);
  EXPECT_EQ(checkpoint(), 1u);
  EXPECT_EQ(newer(), (SyncPoint{1, signature(1)}));
}

TEST_F(LostBytes, AreNoneWhenNothingWasGathered) {
  openJob();
  script() = PipeScript()
                 .data(data.substr(0, 2 * kBlockSize))
                 .error(ERROR_OPERATION_ABORTED)
                 .data(data.substr(2 * kBlockSize));
  deliver(2);
  checkpoint();
  EXPECT_EQ(host.read().code, pmrcFailed);
  deliver(1);
  goTo(2);
  deliver(3);
}

class FirstRecord : public FallbackTest {
 protected:
  // A job takes over a file of blocks with lengths, whose checkpoint is block 2 and which was cut
  // to `size` bytes.
  void takeOverCutFile(std::size_t size) {
    openJob("Need_Full_Block=no");
    checkpoint();
    deliver(2);
    checkpoint();
    deliver(1);
    reload();
    putFile(path(), file().substr(0, size));
    openJob("Need_Full_Block=no");
  }

  // SetPos to position 0 succeeds, and what is written from then on can be replayed.
  void expectAGoodReplayFromTheStart() {
    goTo(0);
    deliver(3);
    EXPECT_EQ(file().substr(kDataStart + 4, kBlockSize), block(1));
    goTo(0);
    deliver(5);
  }
};

TEST_F(FirstRecord, LiesAtTheDataStartAfterALengthThatWasCutShort) {
  for (const std::size_t cut : {2u, 3u}) {
    takeOverCutFile(kDataStart + cut);
    EXPECT_EQ(host.setPos(2).code, pmrcFailed);
    expectAGoodReplayFromTheStart();
    reload();
    DeleteFileA(path().c_str());
  }
}

TEST_F(FirstRecord, LiesAtTheDataStartAfterASeekBackThatFailed) {
  takeOverCutFile(std::string::npos);
  {
    StreamFaults faults(module(), StreamCall::kSeek, 1);
    EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  }
  expectAGoodReplayFromTheStart();
}

TEST_F(FirstRecord, IsGivenUpWithTheFileWhenItCannotBePlaced) {
  takeOverCutFile(kDataStart + 2);
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  goTo(0);
  deliver(1);
  StreamFaults faults(module(), StreamCall::kSeek);
  deliver(2);
  EXPECT_EQ(file().size(), kDataStart + 2);
}

class ReplayThatCannotSeek : public FallbackTest {};

TEST_F(ReplayThatCannotSeek, ServesTheSameRecordNext) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(3);
  goTo(2);
  {
    StreamFaults faults(module(), StreamCall::kSeek, 1);  // the seek to the end still succeeds
    EXPECT_EQ(host.read().code, pmrcFailed);
  }
  deliver(5);
}

class ShortBlock : public FallbackTest {
 protected:
  // A writer that ends block 2 with an empty write after five bytes and then continues.
  void openWithAShortBlock() {
    initialise();
    script() = PipeScript()
                   .data(data.substr(0, kBlockSize + 5))
                   .emptyWrite()
                   .data(data.substr(kBlockSize + 5));
    ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  }
  std::string shortBlock() const { return data.substr(kBlockSize, 5); }
  // The content of the blocks after the short one.
  std::string later(std::size_t number) const {
    return data.substr(kBlockSize + 5 + (number - 3) * kBlockSize, kBlockSize);
  }
  void expectBlock(const std::string& expected) {
    const ReadAnswer answer = host.read();
    EXPECT_EQ(answer.code, pmrcSuccess);
    EXPECT_EQ(answer.data, expected);
  }
};

TEST_F(ShortBlock, IsReplayedAsLongAsItWas) {
  openWithAShortBlock();
  expectBlock(block(1));
  checkpoint();
  expectBlock(shortBlock());
  goTo(1);
  for (int i = 0; i < 3; ++i) {
    expectBlock(block(1));
    expectBlock(shortBlock());
    expectBlock(later(3));
    expectBlock(later(4));
    goTo(1);
  }
}

TEST_F(ShortBlock, IsInTheSignatureAsLongAsItWas) {
  openWithAShortBlock();
  expectBlock(block(1));
  checkpoint();
  expectBlock(shortBlock());
  goTo(1);
  for (int i = 0; i < 4; ++i) host.read();
  goTo(1);
  for (int i = 0; i < 4; ++i) host.read();
  EXPECT_EQ(checkpoint(), 4u);
  const std::size_t bytes = 3 * kBlockSize + 5;
  EXPECT_EQ(newer(), (SyncPoint{4, systemMd5(data.substr(0, bytes))}));
}

TEST_F(ShortBlock, IsForgottenWhenTheDataAreaStartsAgain) {
  openWithAShortBlock();
  expectBlock(block(1));
  checkpoint();
  expectBlock(shortBlock());
  goTo(1);
  expectBlock(block(1));
  expectBlock(shortBlock());
  expectBlock(later(3));
  EXPECT_EQ(checkpoint(), 3u);
  expectBlock(later(4));
  expectBlock(later(5));
  goTo(3);
  expectBlock(later(3));
  expectBlock(later(4));
  expectBlock(later(5));
  expectBlock(later(6));
}

TEST_F(ShortBlock, IsOneOfSeveral) {
  initialise();
  script() = PipeScript();
  std::vector<std::string> blocks;
  for (std::size_t i = 0; i < 6; ++i) {
    blocks.push_back(data.substr(i * kBlockSize, 3 + 2 * i));
    script().data(blocks.back());
    script().emptyWrite();
  }
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  expectBlock(blocks[0]);
  checkpoint();
  for (std::size_t known = 1; known < blocks.size(); ++known) {
    goTo(1);
    for (std::size_t i = 0; i < known; ++i) expectBlock(blocks[i]);
    expectBlock(blocks[known]);
  }
}

}  // namespace
}  // namespace tallow::test
