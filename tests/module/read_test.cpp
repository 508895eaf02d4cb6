// Read of live data, in both ways of reading the pipe.
#include "support/fallback_layout.hpp"
#include "support/files.hpp"
#include "support/module_test.hpp"
#include "support/semaphore.hpp"
#include "support/system_faults.hpp"
#include "support/system_md5.hpp"

namespace tallow::test {
namespace {

LogEntry request() {
  return requestLine("pmiPIDMOptRead", 4);
}
LogEntry pipeLine(std::size_t bytes, int block) {
  return trace(6, "Read " + std::to_string(bytes) + " bytes from pipe for block no. " +
                      std::to_string(block) + ".");
}
LogEntry blockLine(std::size_t bytes, int block) {
  return trace(6, "Returning " + std::to_string(bytes) +
                      " data bytes from pipe to Kelvane as block no. " + std::to_string(block) +
                      ".");
}
LogEntry endLine() {
  return trace(6, "Returning pmrcEOF to Kelvane.");
}

void expectEnd(const ReadAnswer& answer) {
  EXPECT_EQ(answer.code, pmrcEOF);
  EXPECT_EQ(answer.data, "");
}

// Full blocks: Need_Full_Block is on.
using FullBlocks = JobTest;

TEST_F(FullBlocks, DeliverEveryByteInBlocksOfTheSize) {
  openJob("Block_size=1000");
  const std::string data = sampleData(3500);
  WriterThread writer = writeAll(pipeName, data, 700);
  std::string received;
  for (const std::size_t length : {1000u, 1000u, 1000u, 500u}) {
    const ReadAnswer answer = host.read();
    EXPECT_EQ(answer.code, pmrcSuccess);
    EXPECT_EQ(answer.data.size(), length);
    received += answer.data;
  }
  EXPECT_EQ(received, data);
  expectEnd(host.read());
}

// SECURITY.md warns of this: whoever may open the pipe at all can end a waiting job.
TEST_F(FullBlocks, EndWhenSomebodyHasOpenedThePipeForItsAttributesAlone) {
  openJob("Block_size=1000");
  const HANDLE visitor = CreateFileA(pipeName.c_str(), FILE_READ_ATTRIBUTES | SYNCHRONIZE, 0,
                                     nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(visitor, INVALID_HANDLE_VALUE);
  CloseHandle(visitor);
  expectEnd(host.read());
}

TEST_F(FullBlocks, DeliverMegabytesUnharmed) {
  openJob();
  const std::string data = sampleData(20'000'003);
  WriterThread writer = writeAll(pipeName, data, 300'000);
  std::string received;
  ReadAnswer answer;
  while ((answer = host.read()).code == pmrcSuccess) received += answer.data;
  expectEnd(answer);
  EXPECT_TRUE(received == data);
}

TEST_F(FullBlocks, AreNumberedFromOneInTheLog) {
  openJob("Block_size=4");
  PipeEnd writer = PipeEnd::connect(pipeName);
  writer.write("onetwo");
  host.read();
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(4, 1), blockLine(4, 1)));
  writer.close();
  host.read();
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(2, 2), blockLine(2, 2)));
  host.read();
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), endLine()));
}

TEST_F(FullBlocks, AreGatheredFromWhatTheWriterSends) {
  openJob("Block_size=10");
  ScriptedPipe pipe(module(), PipeScript().data("abcd").data("efg").data("hij"));
  EXPECT_EQ(host.read().data, "abcdefghij");
  EXPECT_THAT(pipe.wanted(), ElementsAre(10, 6, 3));
  EXPECT_THAT(pipe.pauses(), ElementsAre(1, 1, 1));
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(4, 1), pipeLine(3, 1),
                                            message(6, 78), blockLine(10, 1)));
}

TEST_F(FullBlocks, WaitForTheRestOfABlock) {
  openJob("Block_size=10");
  BinarySemaphore firstHalfRead;
  const ObservedPipe pipe(module(), [&](const PipeScript::Outcome& got) {
    if (got.data == "first") firstHalfRead.release();
  });
  PipeEnd end = PipeEnd::connect(pipeName);
  const WriterThread writer([&] {
    end.write("first");
    firstHalfRead.acquire();
    end.write("other");
  });
  EXPECT_EQ(host.read().data, "firstother");
}

TEST_F(FullBlocks, PollEveryMillisecondUntilAWriterConnects) {
  openJob("Block_size=4");
  ScriptedPipe pipe(module());
  for (int i = 0; i < 5; ++i) pipe.script.error(ERROR_PIPE_LISTENING);
  pipe.script.data("data");
  EXPECT_EQ(host.read().data, "data");
  EXPECT_EQ(pipe.pauses(), std::vector<DWORD>(6, 1));
}

TEST_F(FullBlocks, WaitForARealWriter) {
  openJob("Block_size=4");
  BinarySemaphore polled;
  bool released = false;
  const ObservedPipe pipe(module(), [&](const PipeScript::Outcome& got) {
    if (released) return;
    EXPECT_THAT(got.data, IsEmpty());
    EXPECT_EQ(got.error, unsigned{ERROR_PIPE_LISTENING});
    released = true;
    polled.release();
  });
  const WriterThread writer([&] {
    polled.acquire();
    PipeEnd::connect(pipeName).write("data");
  });
  EXPECT_EQ(host.read().data, "data");
}

TEST_F(FullBlocks, HaveNoTimeOut) {
  openJob("Block_size=4");
  ASSERT_EQ(host.attribute("TIMEOUT_SECONDS", "1").code, pmrcSuccess);
  ScriptedPipe pipe(module());
  for (int i = 0; i < 10; ++i) pipe.script.error(ERROR_PIPE_LISTENING, 100);
  pipe.script.data("data");
  EXPECT_EQ(host.read().data, "data");
  EXPECT_EQ(host.read().code, pmrcEOF);  // the pipe itself has ended
}

TEST_F(FullBlocks, EndWithWhatAZeroByteReadLeft) {
  openJob("Block_size=1000");
  ScriptedPipe pipe(module(), PipeScript().data(std::string(100, 'x')).emptyWrite());
  EXPECT_EQ(host.read().data, std::string(100, 'x'));
  EXPECT_THAT(log.newEntries(),
              ElementsAre(request(), pipeLine(100, 1), pipeLine(0, 1), blockLine(100, 1)));
  expectEnd(host.read());
  EXPECT_EQ(pipe.script.reads(), 2u);
}

TEST_F(FullBlocks, EndAtOnceWithAZeroByteRead) {
  openJob("Block_size=1000");
  ScriptedPipe pipe(module(), PipeScript().emptyWrite());
  expectEnd(host.read());
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(0, 1), endLine()));
}

TEST_F(FullBlocks, EndWithoutDataWhenTheWriterSentNone) {
  openJob();
  PipeEnd::connect(pipeName).close();
  expectEnd(host.read());
}

TEST_F(FullBlocks, FailWhenThePipeListensAgainInsideABlock) {
  openJob("Block_size=1000");
  ScriptedPipe pipe(module(), PipeScript().data(std::string(50, 'x')).error(ERROR_PIPE_LISTENING));
  const ReadAnswer answer = host.read();
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.data, std::string(50, 'x')) << "the bytes gathered so far";
  EXPECT_EQ(answer.text, formattedMessage(61, systemText(ERROR_PIPE_LISTENING).c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(50, 1), message(2, 61)));
}

class PipeFailure : public JobTest, public testing::WithParamInterface<DWORD> {};

TEST_P(PipeFailure, IsReportedWithTheSystemsText) {
  openJob();
  ScriptedPipe pipe(module(), PipeScript().error(GetParam()));
  const ReadAnswer answer = host.read();
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.data, "");
  EXPECT_EQ(answer.text, formattedMessage(61, systemText(GetParam()).substr(0, 249).c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), message(2, 61)));
}

INSTANTIATE_TEST_SUITE_P(Read, PipeFailure,
                         testing::Values(ERROR_ACCESS_DENIED, ERROR_NO_DATA, ERROR_MORE_DATA,
                                         ERROR_PIPE_NOT_CONNECTED, ERROR_OPERATION_ABORTED,
                                         ERROR_INVALID_HANDLE, ERROR_HANDLE_EOF));

TEST_F(FullBlocks, ContinueAfterAFailureThatPasses) {
  openJob("Block_size=4");
  ScriptedPipe pipe(module(), PipeScript().error(ERROR_ACCESS_DENIED).data("data"));
  EXPECT_EQ(host.read().code, pmrcFailed);
  log.newLines();
  EXPECT_EQ(host.read().data, "data");
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(4, 1), blockLine(4, 1)));
}

TEST_F(FullBlocks, FailWhenTheServerDisconnects) {
  initialise();
  PipeEnd server = PipeEnd::serve(pipeName);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  server.disconnect();
  const ReadAnswer answer = host.read();
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(61, systemText(ERROR_PIPE_NOT_CONNECTED).c_str()));
}

TEST_F(FullBlocks, ComeFromAServerThatCloses) {
  initialise("Block_size=8");
  PipeEnd server = PipeEnd::serve(pipeName);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  server.write("from the server");
  server.close();
  EXPECT_EQ(host.read().data, "from the");
  EXPECT_EQ(host.read().data, " server");
  expectEnd(host.read());
}

TEST_F(FullBlocks, ReportTheEndAgainWithoutTouchingThePipe) {
  openJob("Block_size=10");
  ScriptedPipe pipe(module(), PipeScript().data("data"));
  EXPECT_EQ(host.read().data, "data");
  EXPECT_EQ(pipe.script.reads(), 2u);
  log.newLines();
  expectEnd(host.read());
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), endLine()));
  for (int i = 0; i < 3; ++i) expectEnd(host.read());
  EXPECT_EQ(pipe.script.reads(), 2u);
}

TEST_F(FullBlocks, OfOneByte) {
  openJob("Block_size=1");
  PipeEnd writer = PipeEnd::connect(pipeName);
  writer.write("ab");
  writer.close();
  EXPECT_EQ(host.read().data, "a");
  EXPECT_EQ(host.read().data, "b");
  expectEnd(host.read());
}

TEST_F(FullBlocks, OfSixteenMebibytes) {
  openJob("Block_size=16777216");
  const std::string data = sampleData(16777216 + 1);
  WriterThread writer = writeAll(pipeName, data, 1 << 20);
  EXPECT_TRUE(host.read().data == data.substr(0, 16777216));
  EXPECT_EQ(host.read().data, data.substr(16777216));
  expectEnd(host.read());
}

TEST_F(FullBlocks, OfTwoInputsDoNotMix) {
  openJob("Block_size=4");
  void* const first = host.instance;
  const std::string secondName = uniquePipeName();
  ASSERT_EQ(host.open(secondName).code, pmrcSuccess);
  void* const second = host.instance;
  PipeEnd firstWriter = PipeEnd::connect(pipeName);
  PipeEnd secondWriter = PipeEnd::connect(secondName);
  firstWriter.write("aaaabbbb");
  secondWriter.write("ccccdddd");
  for (const char* expected : {"aaaa", "bbbb"}) {
    host.instance = first;
    EXPECT_EQ(host.read().data, expected);
    host.instance = second;
    EXPECT_EQ(host.read().data, expected == std::string("aaaa") ? "cccc" : "dddd");
  }
}

TEST_F(FullBlocks, TakeNoMemoryPerRead) {
  openJob("Block_size=4");
  ScriptedPipe pipe(module());
  for (int i = 0; i < 20; ++i) pipe.script.data("data");
  host.read();
  int allocations = 0;
  const AllocationFaults counted(module(), [&](std::size_t) {
    ++allocations;
    return false;
  });
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host.read().data, "data");
  EXPECT_EQ(allocations, 0);
}

// Available data: Need_Full_Block is off.
class AvailableData : public JobTest {
 protected:
  void openAvailable(const std::string& options = "Block_size=10") {
    openJob("Need_Full_Block=no " + options);
  }
  void setTimeOut(const char* seconds) {
    ASSERT_EQ(host.attribute("TIMEOUT_SECONDS", seconds).code, pmrcSuccess);
    log.newLines();
  }
};

TEST_F(AvailableData, IsDeliveredAsItComes) {
  openAvailable();
  ScriptedPipe pipe(module(), PipeScript().data("abc").data("defghijklm"));
  EXPECT_EQ(host.read().data, "abc");
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(3, 1), blockLine(3, 1)));
  EXPECT_EQ(host.read().data, "defghijklm");
  EXPECT_THAT(pipe.wanted(), ElementsAre(10, 10));
  expectEnd(host.read());
}

TEST_F(AvailableData, ComesThroughARealPipe) {
  openAvailable();
  PipeEnd writer = PipeEnd::connect(pipeName);
  writer.write("abc");
  EXPECT_EQ(host.read().data, "abc");
  writer.write("defghijklmno");
  EXPECT_EQ(host.read().data, "defghijklm");
  writer.close();
  EXPECT_EQ(host.read().data, "no");
  expectEnd(host.read());
}

TEST_F(AvailableData, ComesThroughThePipeOfAServer) {
  initialise("Need_Full_Block=no Block_size=10");
  PipeEnd server = PipeEnd::serve(pipeName);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  server.write("abc");
  EXPECT_EQ(host.read().data, "abc");
  server.close();
  expectEnd(host.read());
}

struct Pauses {
  const char* pipeWait;
  std::vector<DWORD> growing;
};

class GrowingPause : public JobTest, public testing::WithParamInterface<Pauses> {};

TEST_P(GrowingPause, FollowsEachEmptyRead) {
  openJob(std::string("Need_Full_Block=no Block_size=4 Pipe_Wait=") + GetParam().pipeWait);
  ScriptedPipe pipe(module());
  std::vector<DWORD> expected;
  for (const DWORD pause : GetParam().growing) {
    pipe.script.error(ERROR_NO_DATA);
    expected.insert(expected.end(), {1, pause});
  }
  pipe.script.data("data");
  expected.push_back(1);
  EXPECT_EQ(host.read().data, "data");
  EXPECT_EQ(pipe.pauses(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Read, GrowingPause,
    testing::Values(Pauses{"10", {1, 2, 4, 8, 10, 10, 10}}, Pauses{"0", {1, 0, 0, 0}},
                    Pauses{"1", {1, 1, 1}}, Pauses{"2", {1, 2, 2, 2}}, Pauses{"3", {1, 2, 3, 3}},
                    Pauses{"4", {1, 2, 4, 4}}, Pauses{"5", {1, 2, 4, 5, 5}},
                    Pauses{"600", {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 600, 600}}));

TEST_F(AvailableData, PausesUpToTenMillisecondsByDefault) {
  openAvailable("Block_size=4");
  ScriptedPipe pipe(module());
  for (int i = 0; i < 6; ++i) pipe.script.error(ERROR_PIPE_LISTENING);
  pipe.script.data("data");
  EXPECT_EQ(host.read().data, "data");
  EXPECT_THAT(pipe.pauses(), ElementsAre(1, 1, 1, 2, 1, 4, 1, 8, 1, 10, 1, 10, 1));
}

TEST_F(AvailableData, BeginsWithAShortPauseAtEachRead) {
  openAvailable("Block_size=4");
  ScriptedPipe pipe(module());
  for (int block = 0; block < 2; ++block) {
    pipe.script.error(ERROR_NO_DATA);
    pipe.script.error(ERROR_NO_DATA);
    pipe.script.data("data");
    EXPECT_EQ(host.read().data, "data");
  }
  EXPECT_THAT(pipe.pauses(), ElementsAre(1, 1, 1, 2, 1, 1, 1, 1, 2, 1));
}

TEST_F(AvailableData, WaitsOutEveryFailureButTheEnd) {
  openAvailable("Block_size=4");
  ScriptedPipe pipe(module());
  for (const DWORD error : std::initializer_list<DWORD>{
           ERROR_NO_DATA, ERROR_PIPE_LISTENING, ERROR_ACCESS_DENIED, ERROR_PIPE_NOT_CONNECTED,
           ERROR_INVALID_HANDLE, ERROR_OPERATION_ABORTED, ERROR_HANDLE_EOF}) {
    pipe.script.error(error);
  }
  pipe.script.data("data");
  EXPECT_EQ(host.read().data, "data");
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(4, 1), blockLine(4, 1)));
}

TEST_F(AvailableData, EndsWithAZeroByteRead) {
  openAvailable();
  ScriptedPipe pipe(module(), PipeScript().emptyWrite());
  expectEnd(host.read());
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), pipeLine(0, 1), endLine()));
}

TEST_F(AvailableData, HasNoTimeOutUnlessOneIsSet) {
  openAvailable("Block_size=4");
  ScriptedPipe pipe(module());
  for (int i = 0; i < 20; ++i) pipe.script.error(ERROR_NO_DATA, 1000);
  pipe.script.data("data");
  EXPECT_EQ(host.read().data, "data");
}

TEST_F(AvailableData, WithATimeOutEndsWithAnIdlePipe) {
  openAvailable();
  setTimeOut("1");
  ScriptedPipe pipe(module(), PipeScript().thenAlwaysError(ERROR_NO_DATA, 1));
  expectEnd(host.read());
  EXPECT_EQ(pipe.script.reads(), 2u) << "more than one second must have passed";
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), endLine()));
  expectEnd(host.read());
  EXPECT_EQ(pipe.script.reads(), 2u);
}

TEST_F(AvailableData, WithATimeOutEndsWithAnythingButAFullBlock) {
  openAvailable();
  setTimeOut("100");
  ScriptedPipe pipe(module(), PipeScript().data("half").data("never read"));
  EXPECT_EQ(host.read().data, "half");
  expectEnd(host.read());
  EXPECT_EQ(pipe.script.reads(), 1u);
}

TEST_F(AvailableData, WithATimeOutContinuesAfterABlockThatCameInOnePiece) {
  openAvailable();
  setTimeOut("100");
  ScriptedPipe pipe(
      module(),
      PipeScript().data("0123456789").data("9876543210").thenAlwaysError(ERROR_NO_DATA, 60));
  EXPECT_EQ(host.read().data, "0123456789");
  EXPECT_EQ(host.read().data, "9876543210");
  expectEnd(host.read());
}

TEST_F(AvailableData, CountsItsTimeFromTheBeginningOfEachRead) {
  openAvailable();
  setTimeOut("5");
  ScriptedPipe pipe(module());
  for (int block = 0; block < 3; ++block) {
    pipe.script.error(ERROR_NO_DATA, 4);
    pipe.script.data("0123456789");
    EXPECT_EQ(host.read().data, "0123456789");
  }
}

TEST_F(AvailableData, WithATimeOutStillEndsWithTheWriter) {
  openAvailable();
  setTimeOut("100");
  ScriptedPipe pipe(module(), PipeScript().error(ERROR_BROKEN_PIPE));
  expectEnd(host.read());
  EXPECT_EQ(pipe.script.reads(), 1u);
}

// Which bytes a signature covers, as the sync point of a checkpoint shows.
class Signature : public ModuleTest {
 protected:
  void openWithFallbackFile(const std::string& options) {
    ASSERT_EQ(
        host.init("Fallback_file=f.fbf Fallback_Directory='" + scratch.path() + "' " + options)
            .code,
        pmrcSuccess);
    ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  }

  // The signature of a checkpoint taken now.
  std::string checkpoint() {
    EXPECT_EQ(host.getPos().code, pmrcSuccess);
    host.close();  // flushes the file, which stays: Read has not returned the end
    return syncPointAt(contentOf(scratch.file("f.fbf")), kNewerSyncPoint).signature;
  }
};

TEST_F(Signature, CoversEveryFullBlock) {
  openWithFallbackFile("Block_size=10");
  ScriptedPipe pipe(module(), PipeScript().data("01234").data("56789").data("abcdefghij"));
  host.read();
  host.read();
  EXPECT_EQ(checkpoint(), systemMd5("0123456789abcdefghij"));
}

TEST_F(Signature, CoversALastBlockThatEndsWithAZeroByteRead) {
  openWithFallbackFile("Block_size=1000");
  ScriptedPipe pipe(module(), PipeScript().data(std::string(100, 'x')).emptyWrite());
  host.read();
  EXPECT_EQ(checkpoint(), systemMd5(std::string(100, 'x')));
}

TEST_F(Signature, LeavesOutALastBlockThatEndsWithABrokenPipe) {
  openWithFallbackFile("Block_size=1000");
  ScriptedPipe pipe(module(), PipeScript().data(std::string(100, 'x')).error(ERROR_BROKEN_PIPE));
  EXPECT_EQ(host.read().data.size(), 100u);
  EXPECT_EQ(checkpoint(), systemMd5(""));
}

TEST_F(Signature, CoversAvailableData) {
  openWithFallbackFile("Block_size=10 Need_Full_Block=no");
  ScriptedPipe pipe(module(), PipeScript().data("abc").data("de"));
  host.read();
  host.read();
  EXPECT_EQ(checkpoint(), systemMd5("abcde"));
}

TEST_F(Signature, LeavesOutABlockThatATimeOutEnded) {
  openWithFallbackFile("Block_size=10 Need_Full_Block=no");
  ASSERT_EQ(host.attribute("TIMEOUT_SECONDS", "100").code, pmrcSuccess);
  ScriptedPipe pipe(module(), PipeScript().data("0123456789").data("half"));
  host.read();
  EXPECT_EQ(host.read().data, "half");
  EXPECT_EQ(checkpoint(), systemMd5("0123456789"));
}

}  // namespace
}  // namespace tallow::test
