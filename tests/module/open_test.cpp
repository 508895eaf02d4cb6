// Open: the pipe's name, and which end of the pipe the module becomes.
#include <sys/stat.h>

#include "support/module_test.hpp"
#include "support/system_faults.hpp"

namespace tallow::test {
namespace {

using Open = JobTest;

constexpr const char* kSyntax = "on windows named pipe syntax is: \\\\.\\pipe\\pipename";

std::string hostText(const std::string& whole) {
  return whole.substr(0, 511);
}

TEST_F(Open, AnswersTheHandleAndTheBlockSize) {
  initialise("Block_size=4096");
  void* const moduleHandle = host.moduleHandle;
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_NE(host.instance, nullptr);
  EXPECT_EQ(host.moduleHandleAfterOpen, moduleHandle);
  EXPECT_EQ(host.blockSize, 4096u);
  EXPECT_EQ(host.wordAfterMode, 0u);
  EXPECT_THAT(log.newEntries(),
              ElementsAre(requestLine("pmiPIDMOptOpen", 2),
                          trace(6, "Opened pipe \"" + pipeName + "\"."), message(1, 101)));
}

TEST_F(Open, SaysWhichFallbackOptionsAreIgnored) {
  initialise("Fallback_file=x.fbf Fallback_Directory='" + scratch.path() + "'");
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("pmiPIDMOptOpen", 2),
                                            trace(6, "Opened pipe \"" + pipeName + "\"."),
                                            message(1, 99), message(1, 100), message(1, 101)));
  EXPECT_EQ(lines.at(2).text, formattedMessage(99, "x.fbf"));
  EXPECT_EQ(lines.at(3).text, formattedMessage(100, scratch.path().c_str()));
}

class WriteMode : public JobTest, public testing::WithParamInterface<std::int16_t> {};

TEST_P(WriteMode, IsRefusedAsNotSupported) {
  initialise();
  const Answer answer = host.open(pipeName, GetParam());
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(6, messageText(60).c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 6)));
}

INSTANTIATE_TEST_SUITE_P(Open, WriteMode, testing::Values(2, 3));

class InvalidMode : public JobTest, public testing::WithParamInterface<std::int16_t> {};

TEST_P(InvalidMode, IsRefusedWithItsOwnReturnCode) {
  initialise();
  EXPECT_EQ(host.open(pipeName, GetParam()).code, pmrcBadOpenMode);
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 13)));
  EXPECT_EQ(lines.at(1).text, formattedMessage(13, static_cast<int>(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Open, InvalidMode, testing::Values(0, 4, -1, 257, 32767, -32768));

TEST_F(Open, LooksAtTheModeBeforeTheName) {
  initialise();
  EXPECT_EQ(host.open("", 5).code, pmrcBadOpenMode);
}

TEST_F(Open, RefusesAnEmptyName) {
  initialise();
  const Answer answer = host.open("");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(44, messageText(60).c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 44)));
}

class NoPipeName : public JobTest, public testing::WithParamInterface<std::string> {};

TEST_P(NoPipeName, IsRefusedWithTheSyntax) {
  initialise();
  const Answer answer = host.open(GetParam());
  EXPECT_EQ(answer.code, pmrcFailed);
  const std::string whole = formattedMessage(45, GetParam().c_str(), kSyntax);
  EXPECT_EQ(answer.text, hostText(whole));
  EXPECT_EQ(answer.textLength, whole.size());
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 45)));
}

INSTANTIATE_TEST_SUITE_P(Open, NoPipeName,
                         testing::Values("x", "\\\\.\\PIPE\\x", "\\\\.\\pipe", "//./pipe/x",
                                         " \\\\.\\pipe\\x", "\\\\?\\pipe\\x", "\\\\.\\pip\\x",
                                         "c:\\no\\such\\file", "%s%n%d", "\\\\.\\pIpe\\x"));

TEST_F(Open, RefusesADirectory) {
  initialise();
  const Answer answer = host.open(scratch.path());
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(89, scratch.path().c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 89)));
}

TEST_F(Open, HandsTheBarePrefixToTheSystem) {
  initialise();
  const Answer answer = host.open("\\\\.\\pipe\\");
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_THAT(answer.text.value_or(""), testing::Not(HasSubstr(kSyntax)));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 45)));
}

TEST_F(Open, TakesTheLongestName) {
  initialise();
  const std::string name = "\\\\.\\pipe\\" + std::string(65535 - 9, 'n');
  EXPECT_EQ(host.open(name).code, pmrcFailed);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 45)));
}

TEST_F(Open, AllowsOneInputWithAFixedFallbackFile) {
  initialise("Fallback_file=x.fbf");
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  log.newLines();
  const Answer answer = host.open(uniquePipeName());
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(73));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 73)));
}

TEST_F(Open, AllowsTheNextInputWithAFixedFallbackFileAfterClose) {
  initialise("Fallback_file=x.fbf");
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  ASSERT_EQ(host.close().code, pmrcSuccess);
  EXPECT_EQ(host.open(pipeName).code, pmrcSuccess);
}

TEST_F(Open, AllowsSeveralInputsWithoutAFixedFallbackFile) {
  initialise();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(host.open(uniquePipeName()).code, pmrcSuccess);
}

TEST_F(Open, AFailedOneDoesNotCountAsAnInput) {
  initialise("Fallback_file=x.fbf");
  ASSERT_EQ(host.open("no pipe").code, pmrcFailed);
  EXPECT_EQ(host.open(pipeName).code, pmrcSuccess);
}

TEST_F(Open, AFailedOneLeavesNothingBehind) {
  initialise();
  host.open("no pipe");
  host.open("\\\\.\\pipe\\");
  const std::size_t handles = openHandles();
  const std::size_t blocks = heapBlocks();
  for (int i = 0; i < 10; ++i) {
    host.open("no pipe");
    host.open("\\\\.\\pipe\\");
  }
  EXPECT_EQ(openHandles(), handles);
  EXPECT_EQ(heapBlocks(), blocks);
}

// The module's calls that create or open a pipe.
struct SystemCalls {
  explicit SystemCalls(HMODULE module)
      : createPipe(module, "CreateNamedPipeA",
                   [this](LPCSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out,
                          DWORD in, DWORD timeout, SECURITY_ATTRIBUTES* security) {
                     serverName = name;
                     server = {openMode, pipeMode, instances, out, in, timeout};
                     EXPECT_EQ(security, nullptr);
                     return createPipe.original(name, openMode, pipeMode, instances, out, in,
                                                timeout, security);
                   }),
        createWidePipe(module, "CreateNamedPipeW",
                       [this](LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances,
                              DWORD out, DWORD in, DWORD timeout, SECURITY_ATTRIBUTES* security) {
                         wideServerName = name;
                         server = {openMode, pipeMode, instances, out, in, timeout};
                         return createWidePipe.original(name, openMode, pipeMode, instances, out,
                                                        in, timeout, security);
                       }),
        createFile(module, "CreateFileA",
                   [this](LPCSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                          DWORD disposition, DWORD flags, HANDLE model) {
                     clientName = name;
                     client = {access, share, disposition, flags};
                     EXPECT_EQ(security, nullptr);
                     EXPECT_EQ(model, nullptr);
                     return createFile.original(name, access, share, security, disposition, flags,
                                                model);
                   }),
        createWideFile(
            module, "CreateFileW",
            [this](LPCWSTR name, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD flags, HANDLE model) {
              wideClientName = name;
              client = {access, share, disposition, flags};
              return createWideFile.original(name, access, share, security, disposition, flags,
                                             model);
            }) {}

  std::string serverName;
  std::wstring wideServerName;
  std::vector<DWORD> server;  // open mode, pipe mode, instances, both buffers, time-out
  std::string clientName;
  std::wstring wideClientName;
  std::vector<DWORD> client;  // access, share mode, disposition, flags

  Hook<struct CreatePipeTag,
       HANDLE(LPCSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, SECURITY_ATTRIBUTES*)>
      createPipe;
  Hook<struct CreatePipeTag,
       HANDLE(LPCWSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, SECURITY_ATTRIBUTES*)>
      createWidePipe;
  Hook<struct CreateFileTag,
       HANDLE(LPCSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE)>
      createFile;
  Hook<struct CreateFileTag,
       HANDLE(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE)>
      createWideFile;
};

class BothModes : public JobTest, public testing::WithParamInterface<bool> {
 protected:
  void initialiseMode() { initialise(GetParam() ? "Need_Full_Block=yes" : "Need_Full_Block=no"); }
  // The word that sets both the share mode and the blocking mode.
  DWORD modeWord() const { return GetParam() ? 0 : 1; }
};

TEST_P(BothModes, CreateTheServerEndWhenThereIsNoPipe) {
  initialiseMode();
  SystemCalls calls(module());
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_EQ(calls.serverName, pipeName);
  EXPECT_THAT(calls.server, ElementsAre(1, modeWord(), 4, 2097152, 2097152, 100));
  EXPECT_TRUE(calls.client.empty());
}

TEST_P(BothModes, ConnectToAPipeThatExists) {
  initialiseMode();
  PipeEnd writer = PipeEnd::serve(pipeName);
  SystemCalls calls(module());
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_EQ(calls.clientName, pipeName);
  EXPECT_THAT(calls.client, ElementsAre(0x80000000, modeWord(), 3, 0));
  EXPECT_TRUE(calls.server.empty());
}

INSTANTIATE_TEST_SUITE_P(Open, BothModes, testing::Bool(), [](const auto& instance) {
  return std::string(instance.param ? "FullBlocks" : "AvailableData");
});

TEST_F(Open, BuffersHoldTwoBlocks) {
  initialise("Block_size=1000");
  SystemCalls calls(module());
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  EXPECT_EQ(calls.server.at(3), 2000u);
  EXPECT_EQ(calls.server.at(4), 2000u);
}

TEST_F(Open, ConnectsToTheOnlyInstanceAndUsesUpNoOther) {
  initialise("Block_size=4");
  PipeEnd writer = PipeEnd::serve(pipeName);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  writer.write("data");
  EXPECT_EQ(host.read().data, "data");
}

TEST_F(Open, ReportsAPipeThatIsBusy) {
  initialise();
  PipeEnd writer = PipeEnd::serve(pipeName);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  log.newLines();
  const Answer answer = host.open(pipeName);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text,
            formattedMessage(45, pipeName.c_str(), systemText(ERROR_PIPE_BUSY).c_str()));
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 45)));
}

TEST_F(Open, MakesOneAttemptWithoutAPause) {
  initialise();
  int attempts = 0;
  int pauses = 0;
  Hook<struct CreatePipeTag,
       HANDLE(LPCSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, SECURITY_ATTRIBUTES*)>
      createPipe(module(), "CreateNamedPipeA", [&](auto...) {
        ++attempts;
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
      });
  Hook<struct SleepTag, void(DWORD)> sleep(module(), "Sleep", [&](DWORD) { ++pauses; });
  const Answer answer = host.open(pipeName);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text,
            formattedMessage(45, pipeName.c_str(), systemText(ERROR_ACCESS_DENIED).c_str()));
  EXPECT_EQ(attempts, 1);
  EXPECT_EQ(pauses, 0);
}

using FormatMessageSignature = DWORD(DWORD, const void*, DWORD, DWORD, LPSTR, DWORD, void*);

TEST_F(Open, ShowsTheFirstTwoHundredAndFortyNineCharactersOfTheSystemsText) {
  initialise();
  Hook<struct FormatTag, FormatMessageSignature> format(
      module(), "FormatMessageA",
      [&](DWORD flags, const void*, DWORD, DWORD, LPSTR buffer, DWORD, void*) -> DWORD {
        EXPECT_EQ(flags, 0x1100u);
        const std::string text(600, 'x');
        auto* copy = static_cast<char*>(LocalAlloc(LMEM_FIXED, text.size() + 1));
        std::copy_n(text.c_str(), text.size() + 1, copy);
        *reinterpret_cast<char**>(buffer) = copy;
        return static_cast<DWORD>(text.size());
      });
  const Answer answer = host.open("\\\\.\\pipe\\");
  EXPECT_EQ(answer.text,
            hostText(formattedMessage(45, "\\\\.\\pipe\\", std::string(249, 'x').c_str())));
}

TEST_F(Open, RaisesMessage49WhenTheSystemHasNoText) {
  initialise();
  Hook<struct FormatTag, FormatMessageSignature> format(module(), "FormatMessageA",
                                                        [](auto...) -> DWORD { return 0; });
  EXPECT_EQ(host.open("\\\\.\\pipe\\").code, pmrcFailed);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptOpen", 2), message(2, 49)));
}

TEST_F(Open, NamesTheErrorOfTheOpeningWhenTheSystemHasNoTextForIt) {
  constexpr DWORD kNoText = 0x20000001;
  initialise();
  Hook<struct CreateTag, HANDLE(LPCSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, void*)> create(
      module(), "CreateNamedPipeA", [](auto...) {
        SetLastError(kNoText);
        return INVALID_HANDLE_VALUE;
      });
  const Answer answer = host.open(pipeName);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(49, kNoText));
}

// Which end the module becomes, depending on what the system says about the name.
struct Sighting {
  bool statSucceeds;
  DWORD waitError;  // of WaitNamedPipe; 0 = it succeeds
  bool exists;
};

class PipeSighting : public JobTest, public testing::WithParamInterface<Sighting> {};

TEST_P(PipeSighting, DecidesWhetherToConnect) {
  initialise();
  bool connected = false;
  bool created = false;
  Hook<struct StatTag, int(const char*, void*)> stat(
      module(), importsFunction(module(), "_stat64") ? "_stat64" : "_stat64i32",
      [&](const char*, void* status) {
        if (!GetParam().statSucceeds) return -1;
        *static_cast<struct _stat64*>(status) = {};
        return 0;
      });
  Hook<struct WaitTag, BOOL(LPCSTR, DWORD)> wait(module(), "WaitNamedPipeA",
                                                 [&](LPCSTR name, DWORD timeout) -> BOOL {
                                                   EXPECT_EQ(name, pipeName);
                                                   EXPECT_EQ(timeout, 1u);
                                                   SetLastError(GetParam().waitError);
                                                   return GetParam().waitError == 0;
                                                 });
  const auto refuse = [](bool& called) {
    called = true;
    SetLastError(ERROR_ACCESS_DENIED);
    return INVALID_HANDLE_VALUE;
  };
  Hook<struct FileTag, HANDLE(LPCSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE)>
      file(module(), "CreateFileA", [&](auto...) { return refuse(connected); });
  Hook<struct PipeTag,
       HANDLE(LPCSTR, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, SECURITY_ATTRIBUTES*)>
      pipe(module(), "CreateNamedPipeA", [&](auto...) { return refuse(created); });
  EXPECT_EQ(host.open(pipeName).code, pmrcFailed);
  EXPECT_EQ(connected, GetParam().exists);
  EXPECT_EQ(created, !GetParam().exists);
}

INSTANTIATE_TEST_SUITE_P(Open, PipeSighting,
                         testing::Values(Sighting{true, ERROR_FILE_NOT_FOUND, true},
                                         Sighting{false, 0, true},
                                         Sighting{false, ERROR_SEM_TIMEOUT, true},
                                         Sighting{false, ERROR_PIPE_BUSY, true},
                                         Sighting{false, ERROR_FILE_NOT_FOUND, false},
                                         Sighting{false, ERROR_INVALID_PARAMETER, false},
                                         Sighting{false, ERROR_PATH_NOT_FOUND, false},
                                         Sighting{false, ERROR_FILENAME_EXCED_RANGE, false},
                                         Sighting{false, ERROR_ACCESS_DENIED, false}));

struct Spelling {
  const char* charset;
  std::string suffix;
  std::wstring wideSuffix;  // empty: the narrow call
};

class NameSpelling : public JobTest, public testing::WithParamInterface<Spelling> {};

TEST_P(NameSpelling, DecidesBetweenTheNarrowAndTheWideCall) {
  initialise();
  ASSERT_EQ(host.attribute("CHARSET_NAME", GetParam().charset).code, pmrcSuccess);
  SystemCalls calls(module());
  host.open(pipeName + GetParam().suffix);
  if (GetParam().wideSuffix.empty()) {
    EXPECT_EQ(calls.serverName, pipeName + GetParam().suffix);
    EXPECT_TRUE(calls.wideServerName.empty());
  } else {
    const std::wstring widened(pipeName.begin(), pipeName.end());
    EXPECT_EQ(calls.wideServerName, widened + GetParam().wideSuffix);
    EXPECT_TRUE(calls.serverName.empty());
    EXPECT_THAT(calls.server, ElementsAre(1, 0, 4, 2097152, 2097152, 100));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Open, NameSpelling,
    testing::Values(Spelling{"UTF8", "plain", L""}, Spelling{"UTF16", "plain", L""},
                    Spelling{"UTF8",
                             "gr\xc3\xb6\xc3\x9f"
                             "e",
                             L"gr\u00f6\u00dfe"},
                    Spelling{"UTF16", "\xe6\x97\xa5", L"\u65e5"},
                    Spelling{"UTF8", "\xf0\x9f\x98\x80", L"\xd83d\xde00"},
                    Spelling{"UTF8", "bad\xff", L"bad\ufffd"},
                    Spelling{"UTF8", "cut\xc3", L"cut\ufffd"}, Spelling{"utf8", "gr\xc3\xb6", L""},
                    Spelling{"UTF-8", "gr\xc3\xb6", L""}, Spelling{"Utf16", "gr\xc3\xb6", L""},
                    Spelling{"", "gr\xc3\xb6", L""}, Spelling{"UTF8 ", "gr\xc3\xb6", L""}));

TEST_F(Open, ConnectsToAPipeWithAWideName) {
  initialise("Block_size=4");
  ASSERT_EQ(host.attribute("CHARSET_NAME", "UTF8").code, pmrcSuccess);
  const std::wstring wideName = std::wstring(pipeName.begin(), pipeName.end()) + L"\u65e5";
  const HANDLE server = CreateNamedPipeW(wideName.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1,
                                         4096, 4096, 100, nullptr);
  ASSERT_NE(server, INVALID_HANDLE_VALUE);
  SystemCalls calls(module());
  EXPECT_EQ(host.open(pipeName + "\xe6\x97\xa5").code, pmrcSuccess);
  EXPECT_EQ(calls.wideClientName, wideName);
  EXPECT_THAT(calls.client, ElementsAre(0x80000000, 0, 3, 0));
  CloseHandle(server);
}

TEST_F(Open, ReportsANameThatTheConverterHasNoRoomFor) {
  initialise();
  ASSERT_EQ(host.attribute("CHARSET_NAME", "UTF8").code, pmrcSuccess);
  const ReplacedTexts reasonAlone(module(), 45, "%.0s%s");
  SystemCalls calls(module());
  // 65,534 bytes of UTF-16: the converter warns that there is no room for a terminator.
  constexpr std::size_t kTooLong = 32767;
  const std::string name = "\\\\.\\pipe\\" + std::string(kTooLong - 9, 'n');
  EXPECT_EQ(host.open(name).text, "ucnv_convert() error in converting Filename");
  EXPECT_TRUE(calls.server.empty());
  EXPECT_NE(host.open(name.substr(0, kTooLong - 1)).text,
            "ucnv_convert() error in converting Filename");
  EXPECT_FALSE(calls.server.empty());
}

TEST_F(Open, NeedsMemoryForABlock) {
  constexpr std::size_t kBlockSize = 16'777'216;
  initialise("Block_size=" + std::to_string(kBlockSize));
  const AllocationFaults noBlock(module(), [](std::size_t bytes) { return bytes >= kBlockSize; });
  const Answer answer = host.open(pipeName);
  EXPECT_EQ(answer.code, pmrcFailed);
  EXPECT_EQ(answer.text, formattedMessage(43));
  EXPECT_FALSE(WaitNamedPipeA(pipeName.c_str(), 1));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

}  // namespace
}  // namespace tallow::test
