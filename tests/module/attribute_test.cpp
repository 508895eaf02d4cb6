// The four attribute requests.
#include <array>

#include "support/files.hpp"
#include "support/module_test.hpp"

namespace tallow::test {
namespace {

using Attribute = JobTest;

struct Request {
  std::uint32_t code;
  const char* name;
};

constexpr std::array kRequests{
    Request{pmiPIDMOptGetA_A, "pmiPIDMOptGetA_A"}, Request{pmiPIDMOptGetF_A, "pmiPIDMOptGetF_A"},
    Request{pmiPIDMOptPutA_A, "pmiPIDMOptPutA_A"}, Request{pmiPIDMOptPutF_A, "pmiPIDMOptPutF_A"}};

class EveryRequest : public JobTest, public testing::WithParamInterface<Request> {
 protected:
  LogEntry request() const {
    return requestLine(GetParam().name, static_cast<int>(GetParam().code));
  }
  Answer send(std::string_view name, std::string_view value) {
    return host.attribute(name, value, GetParam().code);
  }
};

TEST_P(EveryRequest, AcceptsWhatNeedsNoAction) {
  initialise();
  for (const std::string name : {"CHARSET_NUMBER", "WRITE_BOM", "BYTE_ORDER"}) {
    EXPECT_EQ(send(name, "1").code, pmrcSuccess);
    EXPECT_THAT(log.newEntries(),
                ElementsAre(request(), trace(6, "Attribute name: '" + name +
                                                    "' accepted - no action required")));
  }
}

TEST_P(EveryRequest, StoresRestartInformationAndTimeOutSilently) {
  initialise();
  for (const char* name : {"PRESERVE_RESTART_INFO", "TIMEOUT_SECONDS"}) {
    EXPECT_EQ(send(name, "5").code, pmrcSuccess);
    EXPECT_THAT(log.newEntries(), ElementsAre(request()));
    host.request(pmiPIDMOptShut, nullptr);  // so that the next line is not a repeat
    log.newLines();
  }
}

TEST_P(EveryRequest, StoresTheCharacterSetNameOnPutAAlone) {
  initialise();
  EXPECT_EQ(send("CHARSET_NAME", "UTF8").code, pmrcSuccess);
  const std::vector<LogEntry> entries = log.newEntries();
  if (GetParam().code == pmiPIDMOptPutA_A) {
    EXPECT_THAT(entries, ElementsAre(request()));
  } else {
    EXPECT_THAT(entries,
                ElementsAre(request(), trace(6,
                                             "Attribute name: 'CHARSET_NAME' accepted - no "
                                             "action required")));
  }
}

TEST_P(EveryRequest, RefusesAnUnknownName) {
  initialise();
  for (const std::string name :
       {"timeout_seconds", "Charset_Name", "TIMEOUT_SECONDS ", "TIMEOUT", "", "%s%n%d"}) {
    const Answer answer = send(name, "YES");
    EXPECT_EQ(answer.code, pmrcBadAttribute);
    EXPECT_FALSE(answer.text);
    EXPECT_THAT(log.newEntries(),
                ElementsAre(request(), trace(2, "Attribute name: '" + name + "' unknown")));
  }
}

TEST_P(EveryRequest, LogsANullHandleAndContinuesWithTheName) {
  initialise();
  host.moduleHandle = nullptr;
  EXPECT_EQ(send("WRITE_BOM", "").code, pmrcBadAttribute);
  EXPECT_THAT(log.newEntries(),
              ElementsAre(request(), message(2, 33),
                          trace(6, "Attribute name: 'WRITE_BOM' accepted - no action required")));
  EXPECT_EQ(send("NO_SUCH_NAME", "").code, pmrcBadAttribute);
  EXPECT_THAT(log.newEntries(), ElementsAre(request(), message(2, 33),
                                            trace(2, "Attribute name: 'NO_SUCH_NAME' unknown")));
}

TEST_P(EveryRequest, StoresNothingWithoutAHandle) {
  initialise();
  host.moduleHandle = nullptr;
  for (const char* name : {"CHARSET_NAME", "PRESERVE_RESTART_INFO", "TIMEOUT_SECONDS"}) {
    EXPECT_EQ(send(name, "YES").code, pmrcBadAttribute) << name;
    EXPECT_EQ(log.newEntries().at(1), message(2, 33));
  }
}

TEST_P(EveryRequest, TakesAValueOfAnyLength) {
  initialise();
  EXPECT_EQ(send("CHARSET_NAME", std::string(20000, 'x')).code, pmrcSuccess);
  EXPECT_EQ(send("TIMEOUT_SECONDS", std::string(20000, '9')).code, pmrcSuccess);
}

TEST_P(EveryRequest, ChangesTheTimeOut) {
  openJob("Need_Full_Block=no");
  EXPECT_EQ(send("TIMEOUT_SECONDS", "7").code, pmrcSuccess);
  ScriptedPipe pipe(module(), PipeScript().thenAlwaysError(ERROR_NO_DATA, 1));
  EXPECT_EQ(host.read().code, pmrcEOF);
  EXPECT_EQ(pipe.script.reads(), 8u);
}

INSTANTIATE_TEST_SUITE_P(Attribute, EveryRequest, testing::ValuesIn(kRequests),
                         [](const auto& instance) { return std::to_string(instance.param.code); });

struct TimeOut {
  const char* value;
  int seconds;
};

class TimeOutValue : public JobTest, public testing::WithParamInterface<TimeOut> {};

// With a clock that advances by a second at each read, a time-out of n seconds allows n + 1 reads.
TEST_P(TimeOutValue, IsReadAsAWholeNumber) {
  openJob("Need_Full_Block=no");
  ASSERT_EQ(host.attribute("TIMEOUT_SECONDS", GetParam().value).code, pmrcSuccess);
  ScriptedPipe pipe(module(), PipeScript().thenAlwaysError(ERROR_NO_DATA, 1));
  EXPECT_EQ(host.read().code, pmrcEOF);
  EXPECT_EQ(pipe.script.reads(), static_cast<std::size_t>(GetParam().seconds + 1));
}

INSTANTIATE_TEST_SUITE_P(Attribute, TimeOutValue,
                         testing::Values(TimeOut{"3", 3}, TimeOut{"0", 1}, TimeOut{"", 1},
                                         TimeOut{"abc", 1}, TimeOut{"2.9", 2}, TimeOut{"-0", 1},
                                         TimeOut{" \t+4x", 4}, TimeOut{"-1", -1}, TimeOut{"0.9", 1},
                                         TimeOut{"12abc", 12}));

TEST_F(Attribute, ANegativeTimeOutAllowsNoRead) {
  openJob("Need_Full_Block=no");
  ASSERT_EQ(host.attribute("TIMEOUT_SECONDS", "-5").code, pmrcSuccess);
  ScriptedPipe pipe(module(), PipeScript().thenAlwaysError(ERROR_NO_DATA, 1));
  EXPECT_EQ(host.read().code, pmrcEOF);
  EXPECT_EQ(pipe.script.reads(), 0u);
}

struct Preserve {
  const char* first;
  const char* second;
  bool kept;
};

class PreserveRestartInfo : public ModuleTest, public testing::WithParamInterface<Preserve> {};

TEST_P(PreserveRestartInfo, IsSetByExactlyYes) {
  ASSERT_EQ(host.init("Fallback_file=f.fbf Fallback_Directory='" + scratch.path() + "'").code, 0u);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  ASSERT_EQ(host.getPos().code, pmrcSuccess);
  PipeEnd::connect(pipeName).close();
  ASSERT_EQ(host.read().code, pmrcEOF);
  ASSERT_EQ(host.attribute("PRESERVE_RESTART_INFO", GetParam().first).code, pmrcSuccess);
  ASSERT_EQ(host.attribute("PRESERVE_RESTART_INFO", GetParam().second).code, pmrcSuccess);
  ASSERT_EQ(host.close().code, pmrcSuccess);
  EXPECT_EQ(exists(scratch.file("f.fbf")), GetParam().kept);
}

INSTANTIATE_TEST_SUITE_P(Attribute, PreserveRestartInfo,
                         testing::Values(Preserve{"YES", "YES", true}, Preserve{"NO", "YES", true},
                                         Preserve{"YES", "yes", false}, Preserve{"YES", "Y", false},
                                         Preserve{"YES", "", false}, Preserve{"YES", "YES ", false},
                                         Preserve{"YES", "NO", false}));

}  // namespace
}  // namespace tallow::test
