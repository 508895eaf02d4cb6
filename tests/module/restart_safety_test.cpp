// What keeps the data of a restarted job safe: if two rules meet, the safe one holds.
#include "support/fallback_test.hpp"

namespace tallow::test {
namespace {

class Replay : public FallbackTest {
 protected:
  // A replay of three records of that size ends where the fourth belongs.
  void expectEndAfterThree(std::string_view options, std::size_t recordSize) {
    openJob(options);
    deliver(2);
    checkpoint();
    deliver(2);
    goTo(2);
    deliver(2);
    log.newLines();
    deliver(1);
    const auto afterLast = std::to_string(kDataStart + 3 * recordSize);
    EXPECT_EQ(log.newEntries().back(), trace(6, "Seeking to fallback file offset " + afterLast));
  }
};

TEST_F(Replay, GoesToWhereTheNextRecordBelongs) {
  expectEndAfterThree({}, kBlockSize);
}

TEST_F(Replay, CountsTheLengthOfEachRecordThatHasOne) {
  expectEndAfterThree("Need_Full_Block=no", kBlockSize + 4);
}

TEST_F(Replay, OfALastBlockAsksThePipeForMore) {
  data.resize(kBlockSize + 5);
  openJob();
  script().emptyWrite();
  script().data("more");
  deliver(1);
  checkpoint();
  deliver(1);  // ended by the empty write
  goTo(1);
  deliver(2);
  EXPECT_EQ(host.read().data, "more");
}

class Signature : public FallbackTest {};

TEST_F(Signature, CountsReplayedBlocksOnce) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(3);
  goTo(2);
  deliver(3);
  EXPECT_EQ(checkpoint(), 4u);
  EXPECT_EQ(newer(), (SyncPoint{4, signature(4)}));
  deliver(3);
  EXPECT_EQ(checkpoint(), 7u);
  EXPECT_EQ(newer(), (SyncPoint{7, signature(7)}));
}

TEST_F(Signature, IsRightAfterAReplayFromTheFilesFirstBlock) {
  openJob();
  deliver(1);
  checkpoint();
  deliver(2);
  checkpoint();
  goTo(1);
  deliver(2);
  EXPECT_EQ(checkpoint(), 2u);
  EXPECT_EQ(newer(), (SyncPoint{2, signature(2)}));
}

TEST_F(Signature, IsRightAfterAReplayFromAFirstBlockInTheMiddleOfTheData) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  checkpoint();
  goTo(2);
  deliver(3);
  EXPECT_EQ(checkpoint(), 4u);
  EXPECT_EQ(newer(), (SyncPoint{4, signature(4)}));
  deliver(1);
  EXPECT_EQ(checkpoint(), 5u);
  EXPECT_EQ(newer(), (SyncPoint{5, signature(5)}));
}

TEST_F(Signature, IsRightAfterASecondReplayFromACheckpointInTheReplay) {
  openJob();
  deliver(1);
  checkpoint();
  deliver(5);
  goTo(1);
  deliver(3);
  ASSERT_EQ(checkpoint(), 3u);
  deliver(3);
  goTo(3);
  deliver(2);
  EXPECT_EQ(checkpoint(), 4u);
  EXPECT_EQ(newer(), (SyncPoint{4, signature(4)}));
}

TEST_F(Signature, LeavesOutALastBlockThatABrokenPipeEnded) {
  data.resize(kBlockSize * 2 + 5);
  openJob();
  deliver(1);
  checkpoint();
  deliverRest();
  goTo(1);
  deliverRest();
  EXPECT_EQ(checkpoint(), 3u);
  EXPECT_EQ(newer(), (SyncPoint{3, signature(2)}));
}

TEST_F(Signature, CountsALastBlockThatAnEmptyWriteEnded) {
  data.resize(kBlockSize * 2 + 5);
  openJob();
  script().emptyWrite();
  deliver(1);
  checkpoint();
  deliverRest();
  goTo(1);
  deliverRest();
  EXPECT_EQ(checkpoint(), 3u);
  EXPECT_EQ(newer(), (SyncPoint{3, systemMd5(data)}));
}

TEST_F(Signature, LeavesOutABlockThatATimeOutEnded) {
  data.resize(kBlockSize + 5);
  openJob("Need_Full_Block=no");
  host.attribute("TIMEOUT_SECONDS", "5");
  deliver(1);
  checkpoint();
  deliverRest();
  goTo(1);
  deliverRest();
  EXPECT_EQ(checkpoint(), 2u);
  EXPECT_EQ(newer(), (SyncPoint{2, signature(1)}));
}

TEST_F(Signature, OfAnUnhashedLastBlockIsMetByARestart) {
  data.resize(kBlockSize * 2 + 5);
  leaveFile(3, 0);
  openJob();
  goTo(3);
  deliverRest();
}

TEST_F(Signature, IsRightAfterARestartAndAReplay) {
  leaveFile(3, 2);
  openJob();
  goTo(3);
  deliver(4);
  goTo(3);
  deliver(3);
  EXPECT_EQ(checkpoint(), 5u);
  EXPECT_EQ(newer(), (SyncPoint{5, signature(5)}));
}

class Hashing : public FallbackTest {};

TEST_F(Hashing, ContinuesInAFileWithSignaturesWithoutSignatureCheck) {
  leaveFile(3);
  openJob("Signature_check=0");
  goTo(3);
  deliver(3);
  EXPECT_EQ(checkpoint(), 5u);
  EXPECT_EQ(newer(), (SyncPoint{5, signature(5)}));
}

TEST_F(Hashing, WithoutSignatureCheckNothingIsCompared) {
  leaveFile(3);
  data[5] ^= 1;
  openJob("Signature_check=0");
  log.newLines();
  goTo(3);
  EXPECT_EQ(count(log.newEntries(), message(3, 16)), 0);
  deliver(2);
}

TEST_F(Hashing, LeavesAFileWithoutSignaturesWithoutThem) {
  leaveFile(3, 1, "Signature_check=0");
  openJob("Signature_check=1");
  goTo(3);
  deliver(2);
  EXPECT_EQ(checkpoint(), 4u);
  EXPECT_EQ(newer(), (SyncPoint{4, std::string(16, '\0')}));
}

class RecordSize : public FallbackTest {
 protected:
  std::uint32_t sizeAt(std::size_t record) const {
    return numberOf32(file().substr(kDataStart + record * (kBlockSize + 4)));
  }
};

TEST_F(RecordSize, IsThatOfItsOwnBlock) {
  data.resize(kBlockSize + 7);
  openJob("Need_Full_Block=no");
  deliver(1);
  checkpoint();
  deliverRest();
  EXPECT_EQ(sizeAt(0), kBlockSize);
  EXPECT_EQ(sizeAt(1), 7u);
}

TEST_F(RecordSize, IsThatOfTheBlockThatARestartHasRead) {
  leaveFile(2, 2, "Need_Full_Block=no");
  openJob("Need_Full_Block=no");
  goTo(2);
  deliver(2);
  EXPECT_EQ(sizeAt(0), kBlockSize);
}

TEST_F(RecordSize, SurvivesTheEndOfThePipe) {
  data.resize(kBlockSize * 2 + 7);
  openJob();
  deliver(2);
  checkpoint();
  deliverRest();
  goTo(2);
  deliverRest();
}

TEST_F(RecordSize, OfAShortRestartBlockSurvivesAReplay) {
  data.resize(kBlockSize * 2 + 7);
  leaveFile(3, 0);
  openJob();
  goTo(3);
  deliverRest();
  goTo(3);
  deliverRest();
}

class ReplayedRecord : public FallbackTest {
 protected:
  void startReplay(std::string_view options) {
    openJob(options);
    deliver(2);
    checkpoint();
    deliver(2);
    goTo(2);
    log.newLines();
  }
  // A Read is refused, and then, without `faults`, delivers the same record.
  void expectRefusedThenServed(StreamFaults& faults) {
    const ReadAnswer answer = host.read();
    EXPECT_EQ(answer.code, pmrcDelivery);
    EXPECT_EQ(answer.data, "");
    EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptRead", 4), message(2, 53)));
    faults.onRead = nullptr;
    deliver(3);
  }
};

TEST_F(ReplayedRecord, WithASizeAboveTheBlockSizeIsRefused) {
  startReplay("Need_Full_Block=no");
  StreamFaults faults(module());
  faults.onRead = [](void* buffer, std::size_t size, std::size_t got) {
    if (size == 4) *static_cast<std::uint32_t*>(buffer) = kBlockSize + 1;
    return got;
  };
  expectRefusedThenServed(faults);
}

TEST_F(ReplayedRecord, WithoutAWholeSizeIsRefused) {
  startReplay("Need_Full_Block=no");
  StreamFaults faults(module());
  faults.onRead = [](void*, std::size_t size, std::size_t got) { return size == 4 ? 3 : got; };
  expectRefusedThenServed(faults);
}

TEST_F(ReplayedRecord, InAShortSlotIsRefused) {
  for (const char* options : {"", "Need_Full_Block=no"}) {
    startReplay(options);
    StreamFaults faults(module());
    faults.onRead = [](void*, std::size_t size, std::size_t got) {
      return size == kBlockSize ? got - 1 : got;
    };
    expectRefusedThenServed(faults);
    reload();
    DeleteFileA(path().c_str());
  }
}

class RestartPoint : public FallbackTest {
 protected:
  void expectRefused(std::uint64_t position) {
    log.newLines();
    EXPECT_EQ(host.setPos(position).code, pmrcBadPosition);
    EXPECT_THAT(log.newEntries(),
                ElementsAre(requestLine("pmiPIDMOptSetPos", 7),
                            trace(6, "SetPos to block no. " + std::to_string(position) + '.'),
                            message(2, 32)));
  }
};

TEST_F(RestartPoint, ZeroIsBlockOneWhileThatIsInTheFile) {
  openJob();
  deliver(1);
  checkpoint();
  deliver(3);
  goTo(0);
  EXPECT_EQ(host.getPos().position, 1u);
  deliver(5);
}

TEST_F(RestartPoint, ZeroStartsTheDataAreaWithAPendingBlockOne) {
  leaveFile(3);
  openJob();
  deliver(1);  // drops the recovery; the file stays open
  log.newLines();
  goTo(0);
  EXPECT_THAT(log.newEntries(),
              testing::Contains(trace(6, "Seeking to fallback file offset 346")).Times(2));
  EXPECT_EQ(file().substr(kDataStart, kBlockSize), block(1));
  deliver(3);
}

TEST_F(RestartPoint, ZeroIsRefusedWhenNothingHoldsBlockOne) {
  leaveFile(3);
  openJob();
  deliver(2);
  expectRefused(0);
  deliver(2);
}

TEST_F(RestartPoint, ZeroIsRefusedWhenTheFileBeginsLater) {
  openJob();
  deliver(3);
  checkpoint();
  deliver(2);
  expectRefused(0);
  deliver(2);
}

TEST_F(RestartPoint, ZeroIsTakenAgainAndAgain) {
  openJob();
  deliver(1);
  checkpoint();
  deliver(2);
  for (int i = 0; i < 3; ++i) {
    goTo(0);
    deliver(2);
  }
}

TEST_F(RestartPoint, BetweenTheFilesFirstBlockAndTheCheckpointIsRefused) {
  openJob();
  deliver(1);
  checkpoint();
  deliver(3);
  checkpoint();
  expectRefused(2);
  expectRefused(3);
  goTo(1);
  deliver(4);
}

TEST_F(RestartPoint, RefusalClearsTheEndAlone) {
  data.resize(kBlockSize * 2);
  openJob();
  deliver(1);
  checkpoint();
  deliverRest();
  const std::string before = file();
  expectRefused(2);
  EXPECT_EQ(file(), before);
  EXPECT_EQ(host.close().code, 0u);
  EXPECT_TRUE(exists(path())) << "the end has not been reported since";
}

class SetPosition : public FallbackTest {};

TEST_F(SetPosition, IsAnsweredByGetPos) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(3);
  goTo(2);
  EXPECT_EQ(checkpoint(), 2u);
  EXPECT_EQ(newer(), (SyncPoint{2, signature(2)}));
  deliver(2);
}

TEST_F(SetPosition, ZeroStaysZeroBeforeAnyDelivery) {
  openJob();
  checkpoint();
  goTo(0);
  EXPECT_EQ(checkpoint(), 0u);
  deliver(2);
}

class FailedRestart : public FallbackTest {
 protected:
  // Read, GetPos and SetPos are refused without a further message, and Close keeps the file.
  void expectUsedUp() {
    const std::size_t reads = script().reads();
    const std::string before = file();
    log.newLines();
    for (int i = 0; i < 2; ++i) {
      const ReadAnswer read = host.read();
      EXPECT_EQ(read.code, pmrcDelivery);
      EXPECT_EQ(read.data, "");
      EXPECT_EQ(host.getPos().code, pmrcDelivery);
      EXPECT_EQ(host.setPos(3).code, pmrcDelivery);
      EXPECT_EQ(host.setPos(kNoBlock, 5).code, pmrcDelivery);
    }
    const LogEntry read = requestLine("pmiPIDMOptRead", 4);
    const LogEntry getPos = requestLine("pmiPIDMOptGetPos", 6);
    const LogEntry setPos = requestLine("pmiPIDMOptSetPos", 7);
    EXPECT_THAT(log.newEntries(),
                ElementsAre(read, getPos, setPos, LogEntry{6, 78, {}}, read, getPos, setPos));
    EXPECT_EQ(script().reads(), reads);
    EXPECT_EQ(host.close().code, 0u);
    EXPECT_EQ(file(), before);
  }
};

TEST_F(FailedRestart, WithChangedDataIsUsedUp) {
  leaveFile(3);
  data[20] ^= 1;
  openJob();
  EXPECT_EQ(host.setPos(3).code, pmrcDelivery);
  expectUsedUp();
}

TEST_F(FailedRestart, WithTooLittleDataIsUsedUp) {
  leaveFile(3);
  data.resize(kBlockSize * 2);
  openJob();
  EXPECT_EQ(host.setPos(3).code, pmrcBadPosition);
  expectUsedUp();
}

TEST_F(FailedRestart, WithDataThatEndsInsideAnEarlierBlockIsUsedUp) {
  leaveFile(3, 1, "Signature_check=0");
  data.resize(kBlockSize + 3);
  openJob("Signature_check=0");
  EXPECT_EQ(host.setPos(3).code, pmrcBadPosition);
  expectUsedUp();
}

TEST_F(FailedRestart, WithABrokenPipeIsUsedUp) {
  leaveFile(3);
  openJob();
  script() = PipeScript().data(block(1) + "half").error(ERROR_PIPE_NOT_CONNECTED);
  EXPECT_EQ(host.setPos(3).code, pmrcFailed);
  expectUsedUp();
}

TEST_F(FailedRestart, WithoutTheLengthOfALaterBlockIsUsedUp) {
  leaveFile(3, 2, "Need_Full_Block=no");  // the file holds one record
  openJob("Need_Full_Block=no");
  EXPECT_EQ(host.setPos(3).code, pmrcFailed);
  expectUsedUp();
}

TEST_F(FailedRestart, LeavesTheFileForTheNextJob) {
  leaveFile(3);
  const std::string good = data;
  data[20] ^= 1;
  openJob();
  EXPECT_EQ(host.setPos(3).code, pmrcDelivery);
  host.close();
  data = good;
  send(data);
  ASSERT_EQ(host.open(pipeName).code, 0u);
  goTo(3);
  deliver(2);
}

class RefusedRestart : public FallbackTest {};

TEST_F(RefusedRestart, BeforeThePipeIsAskedMayBeTriedAgain) {
  leaveFile(3);
  openJob();
  EXPECT_EQ(host.setPos(7).code, pmrcBadPosition);
  EXPECT_EQ(host.setPos(3, 4).code, pmrcFailed);
  EXPECT_EQ(host.setPos(kNoBlock).code, pmrcBadPosition);
  EXPECT_EQ(script().reads(), 0u);
  goTo(3);
  deliver(3);
}

TEST_F(RefusedRestart, WithoutTheFirstRecordMayBeTriedAgain) {
  leaveFile(3, 0, "Need_Full_Block=no");  // no record at all
  openJob("Need_Full_Block=no");
  log.newLines();
  EXPECT_EQ(host.setPos(3).code, pmrcFailed);
  EXPECT_EQ(count(log.newEntries(), message(2, 105)), 1);
  EXPECT_EQ(script().reads(), 0u);
  EXPECT_EQ(host.setPos(3).code, pmrcFailed);
  deliver(2);  // the job starts over
}

TEST_F(RefusedRestart, LeavesTheFirstRecordAtTheDataStart) {
  openJob("Need_Full_Block=no");
  checkpoint();
  deliver(2);
  checkpoint();
  reload();
  putFile(path(), file().substr(0, kDataStart));
  openJob("Need_Full_Block=no");
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  goTo(0);
  deliver(2);
  EXPECT_EQ(file().substr(kDataStart + 4, kBlockSize), block(1));
}

class FileMadeInARunningJob : public FallbackTest {};

TEST_F(FileMadeInARunningJob, HasItsSyncArea) {
  openJob();
  deliver(2);
  checkpoint();
  {
    StreamFaults faults(module(), StreamCall::kWrite);
    deliver(1);
  }
  EXPECT_FALSE(exists(path()));
  EXPECT_EQ(checkpoint(), 3u);
  EXPECT_EQ(file().size(), kDataStart);
  EXPECT_EQ(newer(), (SyncPoint{3, signature(3)}));
  deliver(1);
  EXPECT_EQ(file().substr(kDataStart), block(3));
  EXPECT_EQ(newer(), (SyncPoint{3, signature(3)}));
  goTo(3);
  deliver(3);
}

TEST_F(FileMadeInARunningJob, HasItsSyncAreaAlsoForTheCheckpointOfTheLostOne) {
  openJob();
  deliver(2);
  checkpoint();
  {
    StreamFaults faults(module(), StreamCall::kWrite);
    deliver(1);
  }
  {
    StreamFaults faults(module(), StreamCall::kWrite, 1);  // the write of the header still succeeds
    EXPECT_EQ(checkpoint(), 3u);
  }
  EXPECT_FALSE(exists(path()));
  EXPECT_EQ(checkpoint(), 3u);
  EXPECT_EQ(file().size(), kDataStart);
  EXPECT_EQ(newer(), (SyncPoint{3, signature(3)}));
  goTo(3);
  deliver(3);
}

class LiveFile : public FallbackTest {
 protected:
  // The name of the file that the job has created.
  std::string nameInLog() {
    for (const LogLine& line : log.newLines()) {
      if (line.text.starts_with("Creation of ")) {
        const std::size_t first = line.text.find('"') + 1;
        return line.text.substr(first, line.text.rfind('"') - first);
      }
    }
    return {};
  }
};

TEST_F(LiveFile, CannotBeOpenedForWriting) {
  openJob();
  deliver(1);
  checkpoint();
  const HANDLE other =
      CreateFileA(path().c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(other, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SHARING_VIOLATION});
}

TEST_F(LiveFile, KeepsASecondJobOut) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(1);
  const std::string before = file();
  void* const first = host.instance;
  initialise();
  ASSERT_EQ(host.open(uniquePipeName()).code, 0u);
  log.newLines();
  ASSERT_EQ(host.getPos().code, 0u);
  const std::vector<LogEntry> entries = log.newEntries();
  EXPECT_EQ(count(entries, message(2, 79)), 1);
  EXPECT_EQ(count(entries, message(4, 80)), 0);
  EXPECT_EQ(file(), before);
  host.close();
  host.instance = first;
  goTo(2);
  deliver(3);
}

TEST_F(LiveFile, IsNoSearchCandidate) {
  const ScopedCurrentDirectory current(files.path());
  openJob({}, "");
  deliver(2);
  checkpoint();
  const std::string name = nameInLog();
  reload();
  const HANDLE other =
      CreateFileA(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(other, INVALID_HANDLE_VALUE);
  initialise({}, "");
  ASSERT_EQ(host.open(pipeName).code, 0u);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2),
                                            trace(6, "Opened pipe \"" + pipeName + "\".")));
  CloseHandle(other);
}

class ShortBlocks : public FallbackTest {};

TEST_F(ShortBlocks, AreRefusedByARestart) {
  leaveFile(2, 2, "Need_Full_Block=no");
  data.resize(kBlockSize + 3);
  openJob("Need_Full_Block=no");
  EXPECT_EQ(host.setPos(2).code, pmrcBadPosition);
  EXPECT_EQ(host.read().code, pmrcDelivery);
}

TEST_F(ShortBlocks, FailTheSignatureOfARestart) {
  initialise("Need_Full_Block=no");
  script() = PipeScript().data(data.substr(0, 7)).data(data.substr(7, 7)).data(data.substr(14, 32));
  ASSERT_EQ(host.open(pipeName).code, 0u);
  EXPECT_EQ(host.read().data, data.substr(0, 7));
  checkpoint();
  EXPECT_EQ(host.read().data, data.substr(7, 7));
  checkpoint();
  host.read();
  reload();
  openJob("Need_Full_Block=no");
  EXPECT_EQ(host.setPos(1).code, pmrcDelivery);
}

TEST_F(ShortBlocks, OfASlowWriterEndARestartOfTheServersEnd) {
  leaveFile(2, 1, "Need_Full_Block=no");
  openJob("Need_Full_Block=no");
  script() = PipeScript().data(data.substr(0, 5)).error(ERROR_NO_DATA);
  log.newLines();
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  EXPECT_EQ(count(log.newEntries(), message(2, 61)), 1);
}

TEST_F(ShortBlocks, AreReplayedInTheRun) {
  initialise("Need_Full_Block=no");
  script() = PipeScript();
  for (std::size_t at = 0; at < 42; at += 7) script().data(data.substr(at, 7));
  ASSERT_EQ(host.open(pipeName).code, 0u);
  EXPECT_EQ(host.read().data, data.substr(0, 7));
  checkpoint();
  host.read();
  host.read();
  goTo(1);
  for (std::size_t at = 0; at < 42; at += 7) EXPECT_EQ(host.read().data, data.substr(at, 7));
}

class Checkpoints : public FallbackTest {};

TEST_F(Checkpoints, OfADeadHostAreKeptByOneGetPosAfterTheRestart) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  checkpoint();  // the host dies before it has noted this one
  reload();
  openJob();
  goTo(2);
  deliver(1);
  EXPECT_EQ(checkpoint(), 2u);
  deliver(3);
  EXPECT_EQ(checkpoint(), 5u);
  EXPECT_EQ(older().block, 2u);  // still a place to restart from
}

TEST_F(Checkpoints, ThatAHostMissedTwiceAreRefused) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(2);
  checkpoint();
  deliver(2);
  checkpoint();
  reload();
  openJob();
  EXPECT_EQ(host.setPos(2).code, pmrcBadPosition);
  deliver(3);  // the job starts over
}

TEST_F(Checkpoints, DoNotSeeAChangeInAnUnhashedLastBlock) {
  data.resize(kBlockSize * 2 + 5);
  leaveFile(3, 0);
  data[kBlockSize * 2 + 1] ^= 1;
  openJob();
  goTo(3);
  deliverRest();
}

TEST_F(Checkpoints, AreGoneWithTheFileOfAFinishedJob) {
  openJob();
  deliver(2);
  checkpoint();
  deliverRest();
  host.close();
  EXPECT_FALSE(exists(path()));
  reload();
  openJob();
  log.newLines();
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  EXPECT_EQ(count(log.newEntries(), message(2, 52)), 1);
}

}  // namespace
}  // namespace tallow::test
