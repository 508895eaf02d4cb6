// PIDMMain itself: dispatch, the thread check and how failures are reported.
#include <array>
#include <thread>

#include "support/module_test.hpp"
#include "support/system_faults.hpp"

namespace tallow::test {
namespace {

using Entry = JobTest;

struct Request {
  int code;
  const char* name;
};

constexpr std::array kRequests{
    Request{1, "pmiPIDMOptInit"},    Request{2, "pmiPIDMOptOpen"},
    Request{3, "pmiPIDMOptClose"},   Request{4, "pmiPIDMOptRead"},
    Request{5, "pmiPIDMOptWrite"},   Request{6, "pmiPIDMOptGetPos"},
    Request{7, "pmiPIDMOptSetPos"},  Request{8, "pmiPIDMOptShut"},
    Request{9, "pmiPIDMOptID"},      Request{10, "pmiPIDMOptCloseR"},
    Request{11, "pmiPIDMOptGetA_A"}, Request{12, "pmiPIDMOptGetF_A"},
    Request{13, "pmiPIDMOptPutA_A"}, Request{14, "pmiPIDMOptPutF_A"},
};

// A failure's text as the host sees it.
std::string hostText(const std::string& whole) {
  return whole.substr(0, 511);
}

// Throws something that is no exception class while one text is loaded.
ReplacedTexts::Choice throwFor(int textId) {
  return [textId](int id) -> std::optional<std::string> {
    if (id == textId) throw id;
    return std::nullopt;
  };
}

class UnknownRequest : public JobTest, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(UnknownRequest, IsRefusedWithoutALookAtTheBlock) {
  initialise();
  EXPECT_EQ(host.request(GetParam(), nullptr).code, pmrcUnknownRequest);
  const auto code = static_cast<int>(GetParam());
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("undefined!", code), message(2, 24)));
  EXPECT_THAT(lines.at(1).text, HasSubstr("undefined!"));
  EXPECT_THAT(lines.at(1).text, HasSubstr(std::to_string(code)));
  EXPECT_THAT(lines.at(1).text, HasSubstr("entry_test"));  // the host program
}

INSTANTIATE_TEST_SUITE_P(Entry, UnknownRequest,
                         testing::Values(0u, 15u, 16u, 0x7fffffffu, 0x80000000u, 0xffffffffu));

// A block of zeros is enough for every request here: null handles, an empty name, wrong levels.
class KnownRequest : public JobTest, public testing::WithParamInterface<Request> {};

TEST_P(KnownRequest, IsLoggedByNameAndNotRefusedAsUnknown) {
  initialise();
  TallowIdBlock small{};
  TallowOpenBlock open{};
  TallowInitBlock init{};
  TallowAttributeBlock attribute{};
  void* block = &small;
  if (GetParam().code == pmiPIDMOptInit) block = &init;
  if (GetParam().code == pmiPIDMOptOpen) block = &open;
  if (GetParam().code >= pmiPIDMOptGetA_A) block = &attribute;
  TallowRequestBlock request{};
  request.requestCode = static_cast<std::uint32_t>(GetParam().code);
  loaded->entry()(&request, block);
  EXPECT_NE(request.returnCode + 0, pmrcUnknownRequest);
  EXPECT_EQ(log.newEntries().at(0), requestLine(GetParam().name, GetParam().code));
}

INSTANTIATE_TEST_SUITE_P(Entry, KnownRequest, testing::ValuesIn(kRequests),
                         [](const auto& instance) { return std::to_string(instance.param.code); });

TEST_F(Entry, RefusesWriteAndLeavesItsBlockAlone) {
  initialise();
  GuardedMemory block(sizeof(TallowCloseBlock));
  EXPECT_EQ(host.request(pmiPIDMOptWrite, &block).code, pmrcNotSupported);
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("pmiPIDMOptWrite", 5), message(2, 6)));
  EXPECT_THAT(lines.at(1).text, HasSubstr(messageText(60)));
}

TEST_F(Entry, WriteReadsNoBlock) {
  initialise();
  EXPECT_EQ(host.request(pmiPIDMOptWrite, nullptr).code, pmrcNotSupported);
}

TEST_F(Entry, ShutDoesNothing) {
  initialise();
  EXPECT_EQ(host.request(pmiPIDMOptShut, nullptr).code, pmrcSuccess);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptShut", 8)));
}

TEST_F(Entry, ShutLeavesAnOpenJobAlone) {
  openJob("Block_size=4");
  EXPECT_EQ(host.request(pmiPIDMOptShut, nullptr).code, pmrcSuccess);
  PipeEnd writer = PipeEnd::connect(pipeName);
  writer.write("data");
  EXPECT_EQ(host.read().data, "data");
}

TEST_F(Entry, RefusesEveryThreadButTheLoadingOne) {
  initialise();
  GuardedMemory block(sizeof(TallowIdBlock));
  Answer answer;
  std::jthread([&] { answer = host.request(pmiPIDMOptID, &block); }).join();
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(38, messageText(60).c_str())));
  EXPECT_THAT(log.newEntries(), ElementsAre(message(2, 38)));
}

TEST_F(Entry, ReportsTheWholeLengthOfATextThatItCuts) {
  initialise();
  const std::string name(2000, 'n');
  const std::string whole =
      formattedMessage(45, name.c_str(), "on windows named pipe syntax is: \\\\.\\pipe\\pipename");
  const Answer answer = host.open(name);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(whole));
  EXPECT_EQ(answer.textLength, whole.size());
}

TEST_F(Entry, KeepsFiveHundredAndElevenCharactersWhole) {
  initialise();
  constexpr const char* kSyntax = "on windows named pipe syntax is: \\\\.\\pipe\\pipename";
  const std::size_t fixed = formattedMessage(45, "", kSyntax).size();
  for (const std::size_t length : {510u, 511u, 512u, 513u}) {
    const std::string name(length - fixed, 'n');
    const Answer answer = host.open(name);
    EXPECT_EQ(answer.textLength, length);
    EXPECT_EQ(answer.text, hostText(formattedMessage(45, name.c_str(), kSyntax)));
  }
}

TEST_F(Entry, KeepsTheHandlersReturnCodeButLogsTheText) {
  initialise();
  const Answer answer = host.open(pipeName, 4);
  EXPECT_EQ(answer.code, pmrcBadOpenMode);
  EXPECT_FALSE(answer.text);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 13)));
}

TEST_F(Entry, ReportsAStandardExceptionByItsBareDescription) {
  initialise();
  const Answer answer = host.init("Fallback_file='abc");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, "invalid string position");
  EXPECT_EQ(answer.textLength, 23u);
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("pmiPIDMOptInit", 1), message(2, 37)));
  EXPECT_THAT(lines.at(1).text, HasSubstr("invalid string position"));
}

TEST_F(Entry, DoesNotLogAStandardExceptionAfterAReturnCode) {
  initialise();
  const Answer answer = host.init("Bogus=1 Fallback_file='abc");
  EXPECT_EQ(answer.code, pmrcUnknownOption);
  EXPECT_FALSE(answer.text);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptInit", 1), message(2, 82)));
}

TEST_F(Entry, FailuresWithoutAHandleShareOneTextBuffer) {
  initialise();
  const Answer first = host.open(pipeName, 2);
  const Answer second = host.open("no pipe");
  EXPECT_EQ(first.text, hostText(formattedMessage(6, messageText(60).c_str())));
  EXPECT_EQ(first.textAddress, second.textAddress);
  EXPECT_NE(first.text, second.text);
}

TEST_F(Entry, AFailureWithAHandlePutsItsTextIntoThatRecord) {
  openJob();
  ScriptedPipe pipe(module(), PipeScript().error(ERROR_ACCESS_DENIED));
  const ReadAnswer answer = host.read();
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.textAddress, host.instance);
}

TEST_F(Entry, ReportsMessage34WhenTheFailuresTextIsMissing) {
  initialise();
  const ReplacedTexts texts(module(), 44, "");
  const Answer answer = host.open("");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(34, messageText(60).c_str())));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 34)));
}

TEST_F(Entry, KeepsTheReturnCodeOfAFailureWithoutAText) {
  initialise();
  const ReplacedTexts texts(module(), 13, "");
  const Answer answer = host.open(pipeName, 4);
  EXPECT_EQ(answer.code, pmrcBadOpenMode);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 34)));
}

TEST_F(Entry, AnswersTwelveWhenReportingAFailureFails) {
  initialise();
  const ReplacedTexts texts(module(), [](int id) -> std::optional<std::string> {
    if (id == 34) throw 34;  // thrown while a failure is being reported
    return id == 44 ? std::optional<std::string>("") : std::nullopt;
  });
  const Answer answer = host.open("");
  EXPECT_EQ(answer.code, pmrcReportFailed);
  EXPECT_FALSE(answer.text);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 12)));
}

TEST_F(Entry, ReportsAnythingElseThatIsThrownAsMessage34) {
  initialise();
  const ReplacedTexts texts(module(), throwFor(44));
  const Answer answer = host.open("");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(34, messageText(60).c_str())));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 34)));
}

TEST_F(Entry, LogsNothingElseThatIsThrownAfterAReturnCode) {
  initialise();
  const ReplacedTexts texts(module(), throwFor(13));
  EXPECT_EQ(host.open(pipeName, 4).code, pmrcBadOpenMode);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2)));
}

class NullInstance : public JobTest, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(NullInstance, IsRefusedWithMessage34) {
  initialise();
  host.instance = nullptr;
  host.blockSize = 16;
  Answer answer;
  switch (GetParam()) {
    case pmiPIDMOptRead:
      answer = host.read();
      break;
    case pmiPIDMOptGetPos:
      answer = host.getPos();
      break;
    case pmiPIDMOptSetPos:
      answer = host.setPos(1);
      break;
    case pmiPIDMOptClose:
      answer = host.close();
      break;
    default:
      answer = host.closeR();
  }
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(34, messageText(60).c_str())));
  EXPECT_EQ(log.newEntries().at(1), message(2, 34));
}

INSTANTIATE_TEST_SUITE_P(Entry, NullInstance,
                         testing::Values(pmiPIDMOptClose, pmiPIDMOptRead, pmiPIDMOptGetPos,
                                         pmiPIDMOptSetPos, pmiPIDMOptCloseR));

TEST_F(Entry, RefusesANullModuleHandleInOpen) {
  initialise();
  host.moduleHandle = nullptr;
  const Answer answer = host.open(pipeName);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(34, messageText(60).c_str())));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 34)));
}

TEST_F(Entry, RefusesANullPositionInSetPos) {
  ASSERT_EQ(host.init(logOptions() + "Fallback_Directory='" + scratch.path() + "'").code, 0u);
  ASSERT_EQ(host.open(pipeName).code, 0u);
  ASSERT_EQ(host.getPos().code, 0u);
  const Answer answer = host.setPosToNull();
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(34, messageText(60).c_str())));
}

TEST_F(Entry, AnswersOutOfMemoryWithItsOwnText) {
  initialise();
  const AllocationFaults noMemory(module(), [](std::size_t) { return true; });
  const Answer answer = host.init("Block_size=4096");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, hostText(formattedMessage(43)));
}

TEST_F(Entry, SurvivesARunOutOfMemoryAtEveryAllocationOfAJob) {
  initialise();
  for (int failAt = 1;; ++failAt) {
    ASSERT_LT(failAt, 1000) << "no end of allocations";
    int calls = 0;
    bool failed = false;
    Answer answer;
    {
      const AllocationFaults noneFromThere(module(), [&](std::size_t) {
        failed = failed || ++calls == failAt;
        return failed;
      });
      answer = host.init("Block_size=64 No_FallBack=''");
      if (answer.code == pmrcSuccess) answer = host.open(pipeName);
      if (answer.code == pmrcSuccess) {
        PipeEnd::connect(pipeName).close();
        host.read();
      }
    }
    if (!failed) break;
    EXPECT_TRUE(answer.code == pmrcSuccess || answer.code == pmrcFailed ||
                answer.code == pmrcReportFailed)
        << "allocation " << failAt << ": " << answer.code;
    if (host.instance != nullptr) host.closeR();
  }
}

}  // namespace
}  // namespace tallow::test
