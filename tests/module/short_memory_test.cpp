// Memory runs out while a message is being formatted. What the message reports still happens.
#include <utility>

#include "support/fallback_test.hpp"
#include "support/system_faults.hpp"

namespace tallow::test {
namespace {

// Refuses the first allocation after each look-up of one message's text.
class NoMemoryForMessage {
 public:
  NoMemoryForMessage(HMODULE module, int id)
      : texts_(module,
               [this, id](int wanted) {
                 refuses_ = wanted == id;
                 return std::nullopt;
               }),
        allocations_(module, [this](std::size_t) {
          refused_ = refused_ || refuses_;
          return std::exchange(refuses_, false);
        }) {}

  bool hasRefused() const { return refused_; }

 private:
  bool refuses_ = false;
  bool refused_ = false;
  ReplacedTexts texts_;
  AllocationFaults allocations_;
};

class ShortMemory : public FallbackTest {
 protected:
  // Runs a request in which memory runs out in a message.
  template <class Request>
  auto without(int id, Request request) {
    NoMemoryForMessage noMemory(module(), id);
    auto answer = request();
    EXPECT_TRUE(noMemory.hasRefused()) << "message " << id << " was not formatted";
    return answer;
  }
  auto without(int id, ReadAnswer (Host::*request)()) {
    return without(id, [this, request] { return (host.*request)(); });
  }
};

TEST_F(ShortMemory, InTheNoteOfTheNewFileLeavesRoomForItsSyncArea) {
  openJob();
  EXPECT_EQ(without(80, [this] { return host.getPos(); }).code, pmrcSuccess);
  EXPECT_EQ(file().size(), kDataStart);
  checkpoint();
  deliver(3);
  EXPECT_EQ(newer(), (SyncPoint{0, systemMd5("")}));
  EXPECT_EQ(file().substr(kDataStart), block(1) + block(2));
  goTo(0);
  deliver(4);
}

TEST_F(ShortMemory, InTheNoteOfAFileMadeInARunningJobLeavesRoomForItsSyncArea) {
  openJob();
  deliver(2);
  checkpoint();
  {
    StreamFaults faults(module(), StreamCall::kWrite);
    deliver(1);
  }
  EXPECT_EQ(without(80, [this] { return host.getPos(); }).code, pmrcSuccess);
  EXPECT_EQ(newer(), (SyncPoint{3, signature(3)}));
  deliver(2);
  goTo(3);
  deliver(3);
}

TEST_F(ShortMemory, InAWriteFailureGivesTheFileUpAllTheSame) {
  openJob("Need_Full_Block=no");
  deliver(2);
  checkpoint();
  {
    StreamFaults faults(module(), StreamCall::kWrite, 1);  // the write of the length still succeeds
    const ReadAnswer answer = without(51, &Host::read);
    EXPECT_EQ(answer.code, pmrcSuccess);
    EXPECT_EQ(answer.data, block(3));
  }
  EXPECT_FALSE(exists(path()));
  EXPECT_EQ(host.setPos(2).code, pmrcFailed);
  EXPECT_EQ(host.read().data, block(4));
}

TEST_F(ShortMemory, InAWriteFailureOfACheckpointGivesTheFileUpAllTheSame) {
  openJob();
  deliver(2);
  checkpoint();
  deliver(1);
  {
    StreamFaults faults(module(), StreamCall::kWrite);
    EXPECT_EQ(without(51, [this] { return host.getPos(); }).code, pmrcSuccess);
  }
  EXPECT_FALSE(exists(path()));
  deliver(1);
}

TEST_F(ShortMemory, InARefusedRecordServesTheSameRecordNext) {
  openJob("Need_Full_Block=no");
  deliver(2);
  checkpoint();
  deliver(3);
  goTo(2);
  {
    StreamFaults faults(module());
    faults.onRead = [](void*, std::size_t size, std::size_t got) {
      return size == kBlockSize ? got - 1 : got;
    };
    const ReadAnswer answer = without(53, &Host::read);
    EXPECT_EQ(answer.code, pmrcDelivery);
    EXPECT_EQ(answer.data, "");
  }
  deliver(5);
}

TEST_F(ShortMemory, InTheEndOfAJobDeletesItsFile) {
  openJob();
  deliver(1);
  checkpoint();
  deliverRest();
  EXPECT_EQ(without(86, [this] { return host.close(); }).code, pmrcSuccess);
  EXPECT_FALSE(exists(path()));
}

TEST_F(ShortMemory, InAnAcceptedRestartLeavesItAccepted) {
  leaveFile(3);
  openJob();
  EXPECT_EQ(without(95, [this] { return host.setPos(3); }).code, pmrcSuccess);
  EXPECT_EQ(host.read().data, block(3));
}

TEST_F(ShortMemory, InAWarningOfChangedDataLeavesTheRestartAccepted) {
  leaveFile(3);
  data[5] ^= 1;
  openJob("Signature_check=1");
  EXPECT_EQ(without(16, [this] { return host.setPos(3); }).code, pmrcSuccess);
  EXPECT_EQ(host.read().data, block(3));
}

TEST_F(ShortMemory, InTheRefusalOfAPositionLeavesItRefused) {
  openJob();
  deliver(2);
  checkpoint();
  log.newLines();
  const Answer answer = without(32, [this] { return host.setPos(9); });
  EXPECT_EQ(answer.code, pmrcBadPosition);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(count(log.newEntries(), message(2, 43)), 1);
  deliver(1);
}

TEST_F(ShortMemory, InTheRefusalOfAPositionAfterANewLoadLeavesItRefused) {
  leaveFile(3);
  openJob();
  EXPECT_EQ(without(32, [this] { return host.setPos(7); }).code, pmrcBadPosition);
  goTo(3);
  deliver(2);
}

TEST_F(ShortMemory, InTheLossOfTheFileAfterChangedDataLeavesTheReturnCode) {
  leaveFile(3);
  data[5] ^= 1;
  openJob("Signature_check=2");
  StreamFaults faults(module(), StreamCall::kSeek);
  const Answer answer = without(75, [this] { return host.setPos(3); });
  EXPECT_EQ(answer.code, pmrcDelivery);
  EXPECT_EQ(answer.text, std::nullopt);
}

TEST_F(ShortMemory, InALineOfTheLogLeavesTheLineWithoutItsText) {
  openJob();
  log.newLines();
  without(80, [this] { return host.getPos(); });
  std::vector<LogLine> lines = log.newLines();
  std::erase_if(lines, [](const LogLine& line) { return line.id != 80; });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text, "");
}

TEST_F(ShortMemory, InAnUnknownRequestLeavesItUnknown) {
  initialise();
  EXPECT_EQ(without(60, [this] { return host.request(99, nullptr); }).code, pmrcUnknownRequest);
  EXPECT_EQ(without(24, [this] { return host.request(99, nullptr); }).code, pmrcUnknownRequest);
}

TEST_F(ShortMemory, InARefusedWriteLeavesItRefused) {
  initialise();
  const auto write = [this] { return host.request(pmiPIDMOptWrite, nullptr); };
  EXPECT_EQ(without(60, write).code, pmrcNotSupported);
  EXPECT_EQ(without(6, write).code, pmrcNotSupported);
}

// Whichever allocation fails in the Init that turns on the log, the next Init that asks for the log
// gets it, with its level words.
TEST_F(ShortMemory, InTheSetUpOfTheLogLeavesALog) {
  bool failed = true;
  for (int failAt = 1; failed; ++failAt) {
    SCOPED_TRACE("allocation " + std::to_string(failAt));
    ASSERT_LT(failAt, 1000) << "no end of allocations";
    reload();
    log.newLines();
    failed = false;
    {
      int calls = 0;
      const AllocationFaults oneFails(module(), [&](std::size_t) {
        const bool isDue = ++calls == failAt;
        failed = failed || isDue;
        return isDue;
      });
      host.init("Log_level=3");
    }
    ASSERT_EQ(host.init("Log_level=6").code, pmrcSuccess);
    const std::vector<LogLine> lines = log.newLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().text, "New Log Level = 6");
    EXPECT_EQ(lines.back().level, 5);
  }
}

}  // namespace
}  // namespace tallow::test
