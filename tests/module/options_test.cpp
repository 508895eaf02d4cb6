// The initialisation string, as Init reads it.
#include <array>
#include <map>
#include <string_view>

#include "config/option_setting.hpp"
#include "support/module_test.hpp"

namespace tallow::test {
namespace {

using Options = JobTest;

LogEntry note(std::string text) {
  return trace(5, std::move(text));
}

struct Case {
  std::string options;
  std::uint32_t code;
  std::vector<LogEntry> entries;  // after the request's own line
};

void PrintTo(const Case& value, std::ostream* out) {
  *out << value.options;
}

class OptionCase : public JobTest, public testing::WithParamInterface<Case> {};

TEST_P(OptionCase, AnswersAndLogsWhatItMeans) {
  initialise();
  const Answer answer = host.init(GetParam().options);
  EXPECT_EQ(answer.code, GetParam().code);
  std::vector<LogEntry> expected = GetParam().entries;
  expected.insert(expected.begin(), requestLine("pmiPIDMOptInit", 1));
  EXPECT_EQ(log.newEntries(), expected);
}

const std::vector<Case> kSeparators{
    {"", 0, {}},
    {" \t\n ", 0, {}},
    {"=", 0, {}},
    {"= Block_size=5", 0, {}},
    {" \n=Bogus", 0, {}},
    {"Block_size=4096", 0, {note("New Blocksize = 4096")}},
    {"Block_size 4096", 0, {note("New Blocksize = 4096")}},
    {"Block_size = 4096", 0, {note("New Blocksize = 4096")}},
    {"Block_size==4096", 0, {note("New Blocksize = 4096")}},
    {"Block_size\t\n =\n=\t4096\n", 0, {note("New Blocksize = 4096")}},
    {"  Block_size=4096  Pipe_Wait=7\t",
     0,
     {note("New Blocksize = 4096"), note("Pipe Read Wait = 7")}},
    {"Pipe_Wait=7=8", 0, {note("Pipe Read Wait = 7")}},
    {"Pipe_Wait=7 =Block_size=9", 0, {note("Pipe Read Wait = 7")}},
    {"Block_size=4096\r", 34, {message(2, 15)}},
    {"Block_size\r=4096", 21, {message(2, 82)}},
    {"\rBlock_size=4096", 21, {message(2, 82)}},
    {"Pipe_Wait=7\r\nPipe_Wait=8", 0, {note("Pipe Read Wait = 7"), note("Pipe Read Wait = 8")}},
    {std::string("Block_size=4096\0Bogus=1", 23), 0, {note("New Blocksize = 4096")}},
};

const std::vector<Case> kQuotes{
    {"Fallback_file='my file.fbf'", 0, {note("Fallback filename = my file.fbf")}},
    {"Fallback_file=\"my file.fbf\"", 0, {note("Fallback filename = my file.fbf")}},
    {"Fallback_file='a=b \"c\"'", 0, {note("Fallback filename = a=b \"c\"")}},
    {"Fallback_file=\"it's\"", 0, {note("Fallback filename = it's")}},
    {"Fallback_file=a'b'", 0, {note("Fallback filename = a'b'")}},
    {"Fallback_file='a\nb'", 0, {note("Fallback filename = a\nb")}},
    {"Fallback_file='a'Pipe_Wait=5",
     0,
     {note("Fallback filename = a"), note("Pipe Read Wait = 5")}},
    {"Fallback_file=''", 20, {message(2, 54)}},
    {"Fallback_file=\"\"", 20, {message(2, 54)}},
    {"Fallback_file=''x=1", 21, {message(2, 54), message(2, 82)}},
    {"Fallback_file=", 20, {message(2, 54)}},
    {"Fallback_file", 20, {message(2, 54)}},
    {"Bogus", 20, {message(2, 54)}},
    {"Bogus=''", 20, {message(2, 54)}},
    {"Pipe_Wait=5 Fallback_file='abc", 34, {note("Pipe Read Wait = 5"), message(2, 37)}},
    {"Fallback_file=\"abc'", 34, {message(2, 37)}},
    {"Fallback_file='", 34, {message(2, 37)}},
    {"Fallback_file=\"", 34, {message(2, 37)}},
    {"Bogus='abc", 34, {message(2, 37)}},
};

const std::vector<Case> kKeywords{
    {"block_SIZE=4096", 0, {note("New Blocksize = 4096")}},
    {"B=4096", 0, {note("New Blocksize = 4096")}},
    {"Block=4096", 21, {message(2, 82)}},
    {"Block_size_=4096", 21, {message(2, 82)}},
    {"Bogus=1 Pipe_Wait=3", 21, {message(2, 82), note("Pipe Read Wait = 3")}},
    {"NEED_FULL_BLOCK=no", 0, {note("Full Blocks = 0")}},
    {"nfb=N", 0, {note("Full Blocks = 0")}},
    {"NFB=nO", 0, {note("Full Blocks = 0")}},
    {"nfb=non", 0, {note("Full Blocks = 1")}},
    {"nfb=yes", 0, {note("Full Blocks = 1")}},
    {"Need_Full_Block=no Need_Full_Block=yes",
     0,
     {note("Full Blocks = 0")}},  // the second line repeats the first
    {"pw=20", 0, {note("Pipe Read Wait = 20")}},
    {"ff=x.fbf", 0, {note("Fallback filename = x.fbf")}},
    {"NO_FALLBACK=''", 0, {note("No FallBack File")}},
    {"nf", 0, {note("No FallBack File")}},
    {"Pipe_Wait=5 No_FallBack", 0, {note("Pipe Read Wait = 5"), note("No FallBack File")}},
    {"No_FallBack Pipe_Wait=5", 0, {note("No FallBack File")}},
    {"No_FallBack '' Pipe_Wait=5", 0, {note("No FallBack File"), note("Pipe Read Wait = 5")}},
    {"No_FallBack=no", 0, {note("No FallBack File")}},
};

const std::vector<Case> kNumbers{
    {"Block_size=1", 0, {note("New Blocksize = 1")}},
    {"Block_size=16777216", 0, {note("New Blocksize = 16777216")}},
    {"Block_size=16777217", 34, {message(2, 15)}},
    {"Block_size=0", 34, {message(2, 15)}},
    {"Block_size=4k", 34, {message(2, 15)}},
    {"Block_size=-1", 34, {message(2, 15)}},
    {"Block_size=0x10", 34, {message(2, 15)}},
    {"Block_size=4294967297", 34, {message(2, 15)}},
    {"Block_size=99999999999999999999999", 34, {message(2, 15)}},
    {"Block_size=+4096", 0, {note("New Blocksize = 4096")}},
    {"Block_size=' \t4096'", 0, {note("New Blocksize = 4096")}},
    {"Block_size='4096 '", 34, {message(2, 15)}},
    {"Block_size=-4294967295", 0, {note("New Blocksize = 1")}},
    {"Block_size=' '", 34, {message(2, 15)}},
    {"Block_size=007", 0, {note("New Blocksize = 7")}},
    {"Pipe_Wait=0", 0, {note("Pipe Read Wait = 0")}},
    {"Pipe_Wait=600", 0, {note("Pipe Read Wait = 600")}},
    {"Pipe_Wait=601", 0, {note("Pipe Read Wait = 1")}},
    {"Pipe_Wait=-5", 0, {note("Pipe Read Wait = 1")}},
    {"Pipe_Wait=4294967295", 0, {note("Pipe Read Wait = 1")}},
    {"Pipe_Wait=4294967296", 0, {note("Pipe Read Wait = 1")}},
    {"Pipe_Wait=2147483648", 0, {note("Pipe Read Wait = 1")}},
    {"Pipe_Wait=abc", 0, {note("Pipe Read Wait = 0")}},
    {"Pipe_Wait=7x", 0, {note("Pipe Read Wait = 7")}},
    {"Sc=0", 0, {note("data validation check = 0")}},
    {"Signature_check=1", 0, {note("data validation check = 1")}},
    {"signature_check=2", 0, {note("data validation check = 2")}},
    {"Signature_check=3", 22, {message(2, 58)}},
    {"Signature_check=-1", 22, {message(2, 58)}},
    {"Signature_check=1x", 22, {message(2, 58)}},
    {"Signature_check=x", 22, {message(2, 58)}},
    {"Log_level=5", 0, {note("New Log Level = 5")}},
    {"ll=6", 0, {note("New Log Level = 6")}},
    {"Log_level=4", 0, {}},
    {"Log_level=0", 0, {}},
    {"Log_level=7", 22, {message(2, 81)}},
    {"Log_level=-1", 22, {message(2, 81)}},
    {"Log_level=2x", 22, {message(2, 81)}},
    {"Log_level=", 20, {message(2, 54)}},
    {"Log_level=7 Pipe_Wait=3", 22, {message(2, 81), note("Pipe Read Wait = 3")}},
};

const LogEntry kConfirmNote = note("Confirm Fallback file delete = 0");

const std::vector<Case> kConfirmation{
    {"Confirm_fallback_deletion=yes", 0, {kConfirmNote}},
    {"Cfd=Y", 0, {kConfirmNote}},
    {"cfd=NO", 0, {kConfirmNote}},
    {"CFD=n", 0, {kConfirmNote}},
    {"Cfd=maybe", 34, {kConfirmNote}},
    {"Cfd=1", 34, {kConfirmNote}},
};

const std::vector<Case> kOrder{
    {"Bogus=1 Block_size=0", 34, {message(2, 82), message(2, 15)}},
    {"Block_size=0 Bogus=1", 21, {message(2, 15), message(2, 82)}},
    {"Sc=9 Fallback_file=''", 20, {message(2, 58), message(2, 54)}},
    {"Block_size=0 Block_size=7", 34, {message(2, 15), note("New Blocksize = 7")}},
    {"Log_level=4 Pipe_Wait=3 Bogus=1 Log_level=5 Pipe_Wait=4",
     21,
     {message(2, 82), note("New Log Level = 5"), note("Pipe Read Wait = 4")}},
};

INSTANTIATE_TEST_SUITE_P(Separators, OptionCase, testing::ValuesIn(kSeparators));
INSTANTIATE_TEST_SUITE_P(Quotes, OptionCase, testing::ValuesIn(kQuotes));
INSTANTIATE_TEST_SUITE_P(Keywords, OptionCase, testing::ValuesIn(kKeywords));
INSTANTIATE_TEST_SUITE_P(Numbers, OptionCase, testing::ValuesIn(kNumbers));
INSTANTIATE_TEST_SUITE_P(Confirmation, OptionCase, testing::ValuesIn(kConfirmation));
INSTANTIATE_TEST_SUITE_P(Order, OptionCase, testing::ValuesIn(kOrder));

struct Reported {
  const char* options;
  int id;
  const char* first;
  const char* second;  // null for a message with one argument
};

class ReportedOption : public JobTest, public testing::WithParamInterface<Reported> {};

TEST_P(ReportedOption, PutsItsTextIntoTheRequestBlock) {
  initialise();
  const Answer answer = host.init(GetParam().options);
  EXPECT_EQ(answer.text, formattedMessage(GetParam().id, GetParam().first, GetParam().second));
  EXPECT_EQ(answer.textLength, answer.text.value_or("").size());
}

INSTANTIATE_TEST_SUITE_P(
    Options, ReportedOption,
    testing::Values(Reported{"Block_size=4k", 15, "4k", nullptr},
                    Reported{"b=%s%n", 15, "%s%n", nullptr},
                    Reported{"cFd=maybe", 20, "cFd", "maybe"},
                    Reported{"FD=c:\\no\\such", 87, "FD", "c:\\no\\such"},
                    Reported{"Fallback_Directory=c:\\windows\\win.ini", 87, "Fallback_Directory",
                             "c:\\windows\\win.ini"},
                    Reported{"Log_directory='c:\\no such'", 87, "Log_directory", "c:\\no such"},
                    // A later return code leaves the text of an earlier report in place.
                    Reported{"Block_size=4k Bogus=1", 15, "4k", nullptr}));

struct Unreported {
  const char* options;
  std::uint32_t code;
};

class UnreportedOption : public JobTest, public testing::WithParamInterface<Unreported> {};

TEST_P(UnreportedOption, IsReportedByItsReturnCodeAlone) {
  initialise();
  const Answer answer = host.init(GetParam().options);
  EXPECT_EQ(answer.code, GetParam().code);
  EXPECT_FALSE(answer.text);
}

INSTANTIATE_TEST_SUITE_P(Options, UnreportedOption,
                         testing::Values(Unreported{"Pipe_Wait=", 20}, Unreported{"Bogus=1", 21},
                                         Unreported{"Sc=3", 22}, Unreported{"Ll=7", 22}));

struct BadValue {
  const char* value;
  std::uint32_t code;
  int message;  // 0: none in the log
};

// What each option makes of a bad value; null: it takes any.
const std::map<std::string_view, BadValue> kBadValues{
    {"Need_Full_Block", {nullptr, 0, 0}},
    {"Pipe_Wait", {nullptr, 0, 0}},
    {"Block_size", {"0", 34, 15}},
    {"Fallback_file", {nullptr, 0, 0}},
    {"Fallback_Directory", {"c:\\no\\such", 34, 87}},
    {"Confirm_fallback_deletion", {"maybe", 34, 0}},
    {"Signature_check", {"3", 22, 58}},
    {"Log_directory", {"c:\\no\\such", 34, 87}},
    {"Log_level", {"7", 22, 81}},
    {"No_FallBack", {nullptr, 0, 0}},
};

TEST_F(Options, EachReportsItsOwnBadValueAndLeavesTheLogAsItIs) {
  initialise();
  for (const config::OptionName& name : config::optionNames()) {
    SCOPED_TRACE(name.keyword);
    const auto found = kBadValues.find(name.keyword);
    ASSERT_NE(found, kBadValues.end()) << "say what a bad value of " << name.keyword << " gives";
    const auto& [value, code, number] = found->second;
    if (value == nullptr) continue;
    host.init("Log_level=5");
    log.newEntries();
    EXPECT_EQ(host.init(std::string(name.keyword) + "=" + value).code, code);
    const std::vector<LogEntry> entries = log.newEntries();
    if (number != 0) {
      EXPECT_THAT(entries, testing::Contains(message(2, number)));
    }
    host.init("Pipe_Wait=7");
    EXPECT_THAT(log.newEntries(), testing::Contains(note("Pipe Read Wait = 7")));
  }
}

TEST_F(Options, LogTheirArgumentsLiterally) {
  initialise();
  host.init("%s%n%d=1 Signature_check=%s%n Fallback_file=%s%n");
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[1].text, formattedMessage(82, "%s%n%d"));
  EXPECT_EQ(lines[2].text, formattedMessage(58, "%s%n"));
  EXPECT_EQ(lines[3].text, "Fallback filename = %s%n");
}

TEST_F(Options, DefaultBlockSizeIsAMebibyte) {
  initialise();
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_EQ(host.blockSize, 1048576u);
}

TEST_F(Options, TheLastBlockSizeHolds) {
  initialise("Block_size=100 Block_size=200");
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_EQ(host.blockSize, 200u);
}

TEST_F(Options, TakeAVeryLongString) {
  std::string options = "No_FallBack='' ";
  for (int i = 0; i < 20000; ++i) options += "Pipe_Wait=7 ";
  options += "Block_size=77";
  ASSERT_EQ(host.init(options).code, pmrcSuccess);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_EQ(host.blockSize, 77u);
}

TEST_F(Options, StoreADirectoryThatIsWritable) {
  initialise();
  ASSERT_EQ(host.init("Fallback_Directory='" + scratch.path() + "'").code, pmrcSuccess);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptInit", 1),
                                            note("Fallback directory = " + scratch.path())));
}

struct LoggedMessage {
  const char* options;
  int id;
  const char* argument;
};

class LoggedOption : public JobTest, public testing::WithParamInterface<LoggedMessage> {};

TEST_P(LoggedOption, NamesWhatIsWrong) {
  initialise();
  host.init(GetParam().options);
  EXPECT_EQ(log.newLines().back().text, formattedMessage(GetParam().id, GetParam().argument));
}

INSTANTIATE_TEST_SUITE_P(Options, LoggedOption,
                         testing::Values(LoggedMessage{"pIpe_wait=''", 54, "pIpe_wait"},
                                         LoggedMessage{"Bogus=1", 82, "Bogus"},
                                         LoggedMessage{"Block_size=4k", 15, "4k"},
                                         LoggedMessage{"Sc=9", 58, "9"},
                                         LoggedMessage{"Ll=nine", 81, "nine"}));

class BothDirectories : public JobTest, public testing::WithParamInterface<const char*> {
 protected:
  std::string option(const std::string& value) const {
    return std::string(GetParam()) + "='" + value + "'";
  }
};

TEST_P(BothDirectories, MustBeADirectory) {
  initialise();
  const std::string missing = scratch.file("missing");
  const Answer answer = host.init(option(missing));
  EXPECT_EQ(answer.code, pmrcFailed);
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("pmiPIDMOptInit", 1), message(2, 87)));
  EXPECT_EQ(lines.at(1).text, formattedMessage(87, GetParam(), missing.c_str()));
  EXPECT_EQ(answer.text, lines.at(1).text);
}

TEST_P(BothDirectories, MustBeWritable) {
  initialise();
  std::string asked;
  int askedMode = 0;
  Hook<struct AccessTag, int(const char*, int)> access(module(), "_access",
                                                       [&](const char* path, int mode) {
                                                         asked = path;
                                                         askedMode = mode;
                                                         return -1;
                                                       });
  const Answer answer = host.init(option(scratch.path()));
  EXPECT_EQ(asked, scratch.path());
  EXPECT_EQ(askedMode, 2);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(96, GetParam(), scratch.path().c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptInit", 1), message(2, 96)));
}

INSTANTIATE_TEST_SUITE_P(Options, BothDirectories,
                         testing::Values("Fallback_Directory", "Log_directory", "fd", "LD"));

using LogDirectoryVariable = ModuleTest;

TEST_F(LogDirectoryVariable, StopsInitWhenItNamesNoDirectory) {
  ScopedEnvironment variable("NPLOGDIR", scratch.file("missing"));
  const Answer answer = host.init("Bogus=1 Log_directory='" + scratch.path() + "'");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(97, scratch.file("missing").c_str()));
  EXPECT_THAT(readLog(scratch.path()), IsEmpty()) << "no option takes effect";
}

TEST_F(LogDirectoryVariable, StopsInitWhenItsDirectoryIsNotWritable) {
  ScopedEnvironment variable("NPLOGDIR", scratch.path());
  Hook<struct AccessTag, int(const char*, int)> access(module(), "_access",
                                                       [](const char*, int) { return -1; });
  const Answer answer = host.init("Bogus=1");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(97, scratch.path().c_str()));
}

TEST_F(LogDirectoryVariable, StopsInitWhenItNamesAFile) {
  ScopedEnvironment variable("NPLOGDIR", "c:\\windows\\win.ini");
  EXPECT_EQ(host.init("").code, pmrcFailed);
}

TEST_F(LogDirectoryVariable, IsNotLookedAtWhileTheLevelsAreWrong) {
  ScopedEnvironment variable("NPLOGDIR", scratch.file("missing"));
  InitInput input;
  input.level1 = 1;
  EXPECT_EQ(host.init("", input).code, pmrcBadInterfaceLevel);
}

TEST_F(LogDirectoryVariable, LetsInitContinueWhenItIsAWritableDirectory) {
  ScopedEnvironment variable("NPLOGDIR", scratch.path());
  EXPECT_EQ(host.init("Block_size=5").code, pmrcSuccess);
}

}  // namespace
}  // namespace tallow::test
