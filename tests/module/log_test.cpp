// The log file: where it is, what is written to it, and what is summed up.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iterator>

#include "support/files.hpp"
#include "support/module_test.hpp"

namespace tallow::test {
namespace {

using Log = ModuleTest;

constexpr const char* kFile = "namedpipes.log";

std::string quoted(const std::string& value) {
  return "'" + value + "'";
}

bool hasLog(const std::string& directory) {
  return exists(directory + '\\' + kFile);
}

TEST_F(Log, IsNotMadeUnlessSomethingAsksForIt) {
  const ScopedCurrentDirectory here(scratch.path());
  ASSERT_EQ(host.init("Block_size=0").code, pmrcFailed);
  host.request(99, nullptr);
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST_F(Log, IsNotMadeByADirectoryOptionThatIsRefused) {
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.file("missing"))).code, pmrcFailed);
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST_F(Log, IsSetUpAtLoadWhenTheVariableNamesItsDirectory) {
  loaded.reset();
  ScopedEnvironment variable("NPLOGDIR", scratch.path());
  loaded = std::make_unique<Module>();
  const std::vector<LogLine> lines = readLog(scratch.path());
  ASSERT_THAT(entriesOf(lines), ElementsAre(message(2, 98), message(2, 72)));
  EXPECT_EQ(lines[0].text,
            formattedMessage(98, "1.0.0.0", "Copyright (c) 2026 The Tallow Project"));
  const std::string path = scratch.path() + "\\" + kFile;
  EXPECT_THAT(lines[1].text, HasSubstr("log_test"));  // the host program
  EXPECT_THAT(lines[1].text, HasSubstr(messageText(102)));
  EXPECT_THAT(lines[1].text, HasSubstr(path));
}

TEST_F(Log, NamesTheHostByTheFirstWordOfItsCommandLine) {
  std::string commandLine;
  const Hook<struct CommandLineTag, char*()> getCommandLine(module(), "GetCommandLineA",
                                                            [&] { return commandLine.data(); });
  for (const char* separator : {" ", ",", "\t", "\n"}) {
    commandLine = std::string("loader") + separator + "orders";
    ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path())).code, pmrcSuccess);
    const std::string banner = readLog(scratch.path()).back().text;
    EXPECT_THAT(banner, HasSubstr("loader"));
    EXPECT_THAT(banner, testing::Not(HasSubstr("orders")));
  }
}

TEST_F(Log, HasEveryLineInTheFileBeforeItIsClosed) {
  std::vector<std::string> atClose;
  Hook<struct CloseTag, int(std::FILE*)> close(module(), "fclose", [&](std::FILE* file) {
    atClose.push_back(contentOf(scratch.file(kFile)));
    return close.original(file);
  });
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path())).code, pmrcSuccess);
  ASSERT_EQ(atClose.size(), 2U);
  EXPECT_EQ(std::count(atClose[0].begin(), atClose[0].end(), '\n'), 1);
  EXPECT_EQ(std::count(atClose[1].begin(), atClose[1].end(), '\n'), 2);
}

TEST_F(Log, StandsAtErrorsWhenNothingSaysOtherwise) {
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path())).code, pmrcSuccess);
  EXPECT_THAT(entriesOf(readLog(scratch.path())), ElementsAre(message(2, 98), message(2, 72)));
  host.request(pmiPIDMOptShut, nullptr);
  host.request(pmiPIDMOptWrite, nullptr);
  EXPECT_EQ(entriesOf(readLog(scratch.path())).back(), message(2, 6));
}

TEST_F(Log, BannerOfInitNamesTheJob) {
  InitInput input;
  input.moduleName = "nightly load";
  ASSERT_EQ(host.init("Log_level=4", input).code, 0u);
  const std::vector<LogLine> lines = readLog(scratch.path());
  ASSERT_THAT(entriesOf(lines), ElementsAre(message(4, 98), message(4, 72)));
  EXPECT_THAT(lines[1].text, HasSubstr("nightly load"));
  EXPECT_THAT(lines[1].text, HasSubstr("4"));
}

TEST_F(Log, LevelOptionOpensItInTheVariablesDirectoryBeforeTemp) {
  const ScratchDirectory other;
  ScopedEnvironment variable("NPLOGDIR", other.path());
  ASSERT_EQ(host.init("Log_level=1").code, pmrcSuccess);
  EXPECT_TRUE(hasLog(other.path()));
  EXPECT_FALSE(hasLog(scratch.path()));
}

TEST_F(Log, LevelOptionOpensItInTemp) {
  ASSERT_EQ(host.init("Log_level=1").code, pmrcSuccess);
  EXPECT_THAT(entriesOf(readLog(scratch.path())), ElementsAre(message(1, 98), message(1, 72)));
}

TEST_F(Log, LevelOptionOpensItInTheRootWithoutTemp) {
  ScopedEnvironment noTemp("TEMP", std::nullopt);
  const std::string path = std::string("c:\\") + kFile;
  std::filesystem::remove(path);
  ASSERT_EQ(host.init("Log_level=1").code, pmrcSuccess);
  EXPECT_TRUE(hasLog("c:"));
  EXPECT_THAT(readLog("c:").at(1).text, HasSubstr("c:\\\\namedpipes.log"));
  loaded.reset();
  std::filesystem::remove(path);
}

TEST_F(Log, DirectoryOptionGoesBeforeTheVariable) {
  const ScratchDirectory other;
  ScopedEnvironment variable("NPLOGDIR", other.path());
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path())).code, pmrcSuccess);
  EXPECT_TRUE(hasLog(scratch.path()));
  EXPECT_FALSE(hasLog(other.path()));
}

TEST_F(Log, DirectoryMayEndInABackslash) {
  ScopedEnvironment withBackslash("TEMP", scratch.path() + "\\");
  ASSERT_EQ(host.init("Log_level=1").code, pmrcSuccess);
  EXPECT_THAT(readLog(scratch.path()).at(1).text, HasSubstr("\\\\namedpipes.log"));
}

TEST_F(Log, ASecondDirectoryTakesOver) {
  const ScratchDirectory second;
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path())).code, pmrcSuccess);
  ASSERT_EQ(host.init("Log_directory=" + quoted(second.path())).code, pmrcSuccess);
  host.request(pmiPIDMOptWrite, nullptr);
  EXPECT_EQ(readLog(scratch.path()).size(), 2u);
  EXPECT_THAT(entriesOf(readLog(second.path())),
              ElementsAre(message(2, 98), message(2, 72), message(2, 6)));
}

TEST_F(Log, ALevelAboveNothingDoesNotOpenItAgain) {
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path()) + " Log_level=3 Log_level=1").code,
            pmrcSuccess);
  EXPECT_EQ(readLog(scratch.path()).size(), 2u);
}

TEST_F(Log, ALevelAfterLevelZeroOpensItAgain) {
  const ScratchDirectory other;
  ASSERT_EQ(host.init("Log_directory=" + quoted(other.path()) + " Log_level=0 Log_level=1").code,
            pmrcSuccess);
  EXPECT_EQ(readLog(other.path()).size(), 2u);
  EXPECT_EQ(readLog(scratch.path()).size(), 2u) << "in TEMP, since no option names a directory";
}

class LevelFilter : public JobTest, public testing::WithParamInterface<int> {};

TEST_P(LevelFilter, LetsLinesUpToTheLevelThrough) {
  initialise("Pipe_Wait=10 Log_level=" + std::to_string(GetParam()));
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);  // levels 6, 6, 1
  host.request(pmiPIDMOptWrite, nullptr);            // levels 6, 2
  host.init("Pipe_Wait=5");                          // levels 6, 5
  std::vector<LogEntry> expected;
  const auto add = [&](const LogEntry& entry) {
    if (entry.level <= GetParam()) expected.push_back(entry);
  };
  add(requestLine("pmiPIDMOptOpen", 2));
  add(trace(6, "Opened pipe \"" + pipeName + "\"."));
  add(message(1, 101));
  add(requestLine("pmiPIDMOptWrite", 5));
  add(message(2, 6));
  add(requestLine("pmiPIDMOptInit", 1));
  add(trace(5, "Pipe Read Wait = 5"));
  EXPECT_EQ(log.newEntries(), expected);
}

INSTANTIATE_TEST_SUITE_P(Log, LevelFilter, testing::Range(0, 7));

TEST_F(Log, BadLevelOptionLeavesTheLogsOwnLevel) {
  ASSERT_EQ(host.init("Log_directory=" + quoted(scratch.path()) + " Log_level=6 Log_level=9").code,
            pmrcBadOption);
  host.request(pmiPIDMOptShut, nullptr);
  EXPECT_EQ(entriesOf(readLog(scratch.path())).back(), requestLine("pmiPIDMOptShut", 8));
}

TEST_F(Log, LinesCarryTimeProcessLevelAndId) {
  const std::time_t before = std::time(nullptr);
  ASSERT_EQ(host.init("Log_level=6").code, pmrcSuccess);
  const std::time_t after = std::time(nullptr);
  const std::string file = contentOf(scratch.file(kFile));
  const std::string first = file.substr(0, file.find("\r\n"));
  bool found = false;
  for (std::time_t time = before; time <= after && !found; ++time) {
    char stamp[64];
    std::strftime(stamp, sizeof stamp, "%a %b %d %H:%M:%S %Y", std::localtime(&time));
    found = first == std::string(stamp) + ' ' + std::to_string(GetCurrentProcessId()) + ' ' +
                         messageText(70) + " 98 " +
                         formattedMessage(98, "1.0.0.0", "Copyright (c) 2026 The Tallow Project");
  }
  EXPECT_TRUE(found) << first;
}

TEST_F(Log, LinesEndInCarriageReturnAndNewline) {
  ASSERT_EQ(host.init("Log_level=6").code, pmrcSuccess);
  for (int i = 0; i < 3; ++i) host.request(pmiPIDMOptShut, nullptr);
  host.request(pmiPIDMOptWrite, nullptr);
  const std::string file = contentOf(scratch.file(kFile));
  std::size_t lines = 0;
  for (std::size_t i = file.find('\n'); i != std::string::npos; i = file.find('\n', i + 1)) {
    ++lines;
    ASSERT_GT(i, 0u);
    EXPECT_EQ(file[i - 1], '\r');
  }
  // Two banner lines, the level's note, one Shut, its summary, and the two lines of Write.
  EXPECT_EQ(lines, 7u);
  EXPECT_TRUE(file.ends_with("\r\n"));
}

TEST_F(Log, IsAppendedToByTheNextLoad) {
  ASSERT_EQ(host.init("Log_level=2").code, pmrcSuccess);
  loaded.reset();
  const Module again;
  Host other(again);
  ASSERT_EQ(other.init("Log_level=2").code, pmrcSuccess);
  EXPECT_EQ(readLog(scratch.path()).size(), 4u);
}

TEST_F(Log, CutsALineToOneThousandAndTwentyThreeCharacters) {
  const std::string prefix = "Fallback filename = ";
  for (const std::size_t length : {1022u, 1023u, 1024u, 5000u}) {
    const std::string name(length - prefix.size(), 'n');
    ASSERT_EQ(host.init("Log_level=6 Fallback_file=" + name).code, pmrcSuccess);
    const std::string text = readLog(scratch.path()).back().text;
    EXPECT_EQ(text, (prefix + name).substr(0, 1023));
    host.request(pmiPIDMOptShut, nullptr);
  }
}

TEST_F(Log, CutsALongMessageToo) {
  ASSERT_EQ(host.init("Log_level=6").code, pmrcSuccess);
  const std::string keyword(3000, 'k');
  ASSERT_EQ(host.init(keyword + "=1").code, pmrcUnknownOption);
  EXPECT_EQ(readLog(scratch.path()).back().text,
            formattedMessage(82, keyword.c_str()).substr(0, 1023));
}

TEST_F(Log, NeverFailsARequest) {
  const std::string inner = scratch.file("inner");
  ASSERT_TRUE(CreateDirectoryA(inner.c_str(), nullptr));
  ASSERT_EQ(host.init("Log_directory=" + quoted(inner)).code, pmrcSuccess);
  std::filesystem::remove_all(inner);
  EXPECT_EQ(host.request(pmiPIDMOptWrite, nullptr).code, pmrcNotSupported);
  EXPECT_EQ(host.request(pmiPIDMOptShut, nullptr).code, pmrcSuccess);
  EXPECT_FALSE(hasLog(inner));
}

TEST_F(Log, HasItsNameCutWhereItsPathWouldBeTooLong) {
  constexpr std::size_t kLongestPath = MAX_PATH - 1;
  const std::string whole = kFile;
  for (const std::size_t length : {244U, 245U, 246U}) {
    std::string directory = scratch.file(std::to_string(length));
    ASSERT_TRUE(CreateDirectoryA(directory.c_str(), nullptr));
    while (directory.size() < length) {
      // A backslash needs a name after it.
      const std::size_t most = length - directory.size() == 52 ? 49 : 50;
      directory += '\\' + std::string(std::min(most, length - directory.size() - 1), 'd');
      ASSERT_TRUE(CreateDirectoryA(directory.c_str(), nullptr)) << directory;
    }
    ASSERT_EQ(host.init("Log_directory='" + directory + "'").code, pmrcSuccess);
    EXPECT_EQ(host.request(pmiPIDMOptWrite, nullptr).code, pmrcNotSupported);
    const std::string name = whole.substr(0, kLongestPath - length - 1);
    EXPECT_EQ(name.size() == whole.size(), length == 244);
    EXPECT_TRUE(exists(directory + '\\' + name)) << length;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1) << length;
  }
}

TEST_F(Log, MayBeReadWhileALineIsWritten) {
  ASSERT_EQ(host.init("Log_level=2").code, pmrcSuccess);
  const HANDLE reader =
      CreateFileA(scratch.file(kFile).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(reader, INVALID_HANDLE_VALUE);
  host.request(pmiPIDMOptWrite, nullptr);
  CloseHandle(reader);
  EXPECT_EQ(entriesOf(readLog(scratch.path())).back(), message(2, 6));
}

TEST_F(Log, IsNotHeldOpenBetweenLines) {
  ASSERT_EQ(host.init("Log_level=2").code, pmrcSuccess);
  EXPECT_TRUE(DeleteFileA(scratch.file(kFile).c_str()));
  host.request(pmiPIDMOptWrite, nullptr);
  EXPECT_THAT(entriesOf(readLog(scratch.path())), ElementsAre(message(2, 6)));
}

class Repeats : public JobTest {
 protected:
  void SetUp() override { initialise(); }

  void shut(int times) {
    for (int i = 0; i < times; ++i) host.request(pmiPIDMOptShut, nullptr);
  }

  // Expects a summary of `count` lines after the level word of level `level`.
  void expectSummary(const LogLine& line, int level, int count) {
    EXPECT_EQ(line.level, level);
    EXPECT_EQ(line.id, 78);
    const std::string expected =
        formattedMessage(78, line.time.c_str(), static_cast<int>(line.process),
                         messageText(64 + level).c_str(), count);
    EXPECT_TRUE(expected.ends_with(line.text)) << line.text << " is not the end of " << expected;
    EXPECT_THAT(line.text, HasSubstr(std::to_string(count)));
  }

  const LogEntry shutLine = requestLine("pmiPIDMOptShut", 8);
  const LogEntry summary = message(6, 78);
  const LogEntry otherLine = requestLine("pmiPIDMOptID", 9);
};

TEST_F(Repeats, OfOneTextAreSummedUpBeforeTheNext) {
  shut(5);
  host.id();
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_THAT(entriesOf(lines), ElementsAre(shutLine, summary, otherLine));
  expectSummary(lines[1], 6, 5);
}

TEST_F(Repeats, AreNotSummedUpWhenThereIsNone) {
  shut(1);
  host.id();
  EXPECT_THAT(log.newEntries(), ElementsAre(shutLine, otherLine));
}

TEST_F(Repeats, OfTwoAreSummedUp) {
  shut(2);
  host.id();
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_THAT(entriesOf(lines), ElementsAre(shutLine, summary, otherLine));
  expectSummary(lines[1], 6, 2);
}

TEST_F(Repeats, AreSummedUpAtTheTwoHundredthOccurrence) {
  shut(199);
  EXPECT_THAT(log.newEntries(), ElementsAre(shutLine));
  shut(1);
  std::vector<LogLine> lines = log.newLines();
  ASSERT_THAT(entriesOf(lines), ElementsAre(summary));
  expectSummary(lines[0], 6, 200);
  shut(1);
  host.id();
  lines = log.newLines();
  ASSERT_THAT(entriesOf(lines), ElementsAre(summary, otherLine));
  expectSummary(lines[0], 6, 1);
}

TEST_F(Repeats, AreNotSummedUpTwice) {
  shut(200);
  host.id();
  EXPECT_THAT(log.newEntries(), ElementsAre(shutLine, summary, otherLine));
}

TEST_F(Repeats, AreSummedUpEveryTwoHundredOccurrences) {
  shut(450);
  host.id();
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_THAT(entriesOf(lines), ElementsAre(shutLine, summary, summary, summary, otherLine));
  expectSummary(lines[1], 6, 200);
  expectSummary(lines[2], 6, 200);
  expectSummary(lines[3], 6, 50);
}

TEST_F(Repeats, BeginAnewWithEachText) {
  shut(3);
  host.id();
  shut(1);
  host.id();
  EXPECT_THAT(log.newEntries(), ElementsAre(shutLine, summary, otherLine, shutLine, otherLine));
}

TEST_F(Repeats, SummaryHasTheLevelOfTheLineAfterIt) {
  ASSERT_EQ(host.init("No_FallBack='' Log_level=2").code, pmrcSuccess);
  log.newLines();
  for (int i = 0; i < 3; ++i) host.request(pmiPIDMOptWrite, nullptr);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_THAT(entriesOf(lines), ElementsAre(message(2, 6), message(1, 78), message(1, 101)));
  expectSummary(lines[1], 1, 3);
}

TEST_F(Repeats, LinesThatAreFilteredOutBreakNoRun) {
  ASSERT_EQ(host.init("Log_level=2").code, pmrcSuccess);
  log.newLines();
  host.request(pmiPIDMOptWrite, nullptr);
  shut(3);
  host.request(pmiPIDMOptWrite, nullptr);
  EXPECT_THAT(log.newEntries(), ElementsAre(message(2, 6)));
}

}  // namespace
}  // namespace tallow::test
