// A message ends with the reason of the operation that failed, and of no other.
#include "support/fallback_test.hpp"

namespace tallow::test {
namespace {

class Reason : public FallbackTest {
 protected:
  // A job takes over a file whose records have lengths; the length of block 1 is cut short.
  void takeOverAFileCutShort() {
    leaveFile(2, 1, "Need_Full_Block=no");
    putFile(path(), file().substr(0, kDataStart + 2));
    openJob("Need_Full_Block=no");
  }
  void startReplay() {
    openJob();
    deliver(2);
    checkpoint();
    deliver(2);
    goTo(2);
  }
  static void expectFailure(const Answer& answer, int id, DWORD error) {
    EXPECT_EQ(answer.code, pmrcFailed);
    EXPECT_EQ(answer.text, formattedMessage(id, systemText(error).c_str()));
  }
  // The only line of message 79 in the log.
  std::string noFileLine() {
    std::vector<LogLine> lines = log.newLines();
    std::erase_if(lines, [](const LogLine& line) { return line.id != 79; });
    return lines.size() == 1 ? lines[0].text : std::to_string(lines.size()) + " lines";
  }
  std::string noFile(DWORD error) const {
    return formattedMessage(79, path().c_str(), systemText(error).c_str());
  }
};

TEST_F(Reason, OfALengthThatIsCutShortIsTheEndOfTheFile) {
  takeOverAFileCutShort();
  expectFailure(host.setPos(2), 105, ERROR_HANDLE_EOF);
}

TEST_F(Reason, OfALengthThatCannotBeReadIsTheSystems) {
  takeOverAFileCutShort();
  StreamFaults faults(module());
  faults.onRead = [](void*, std::size_t, std::size_t) {
    SetLastError(ERROR_CRC);
    return std::size_t{0};
  };
  expectFailure(host.setPos(2), 105, ERROR_CRC);
}

TEST_F(Reason, OfASeekWithoutASystemErrorIsNoOlderOne) {
  startReplay();
  StreamFaults faults(module(), StreamCall::kSeek);
  SetLastError(ERROR_FILE_EXISTS);
  expectFailure(host.read(), 103, ERROR_SEEK);
}

TEST_F(Reason, OfAPositionWithoutASystemErrorIsNoOlderOne) {
  startReplay();
  const auto isTell = [](StreamCall call) { return call == StreamCall::kTell; };
  StreamFaults faults(module(), isTell);
  SetLastError(ERROR_FILE_EXISTS);
  expectFailure(host.read(), 104, ERROR_SEEK);
  checkpoint();  // its position is still that of the newest sync point
  faults.setRule(nullptr);
  deliver(3);
  faults.setRule(isTell);
  SetLastError(ERROR_FILE_EXISTS);
  expectFailure(host.getPos(), 104, ERROR_SEEK);
}

TEST_F(Reason, OfAFileThatCannotBeMadeIsTheSystems) {
  openJob();
  StreamFaults faults(module(), StreamCall::kOpen);
  faults.systemError = ERROR_ACCESS_DENIED;
  checkpoint();
  EXPECT_EQ(noFileLine(), noFile(ERROR_ACCESS_DENIED));
}

TEST_F(Reason, OfAFileThatCannotBeMadeWithoutASystemErrorIsNoOlderOne) {
  openJob();
  StreamFaults faults(module(), StreamCall::kOpen);
  SetLastError(ERROR_FILE_EXISTS);
  checkpoint();
  EXPECT_EQ(noFileLine(), noFile(ERROR_TOO_MANY_OPEN_FILES));
}

TEST_F(Reason, OfAHeaderThatCannotBeWrittenIsNoOlderOne) {
  openJob();
  StreamFaults faults(module(), StreamCall::kWrite);
  SetLastError(ERROR_FILE_EXISTS);
  checkpoint();
  EXPECT_EQ(noFileLine(), noFile(ERROR_WRITE_FAULT));
}

}  // namespace
}  // namespace tallow::test
