// Init, Close, CloseR, ID; what loading, unloading and the end of a process leave behind.
#include <windows.h>

#include <timeapi.h>

#include <algorithm>
#include <array>
#include <regex>

#include "support/child_process.hpp"
#include "support/fallback_layout.hpp"
#include "support/files.hpp"
#include "support/module_test.hpp"

namespace tallow::test {
namespace {

using Init = JobTest;
using Close = JobTest;
using Identify = JobTest;
using Unload = JobTest;

bool pipeExists(const std::string& name) {
  return WaitNamedPipeA(name.c_str(), 1) || GetLastError() != ERROR_FILE_NOT_FOUND;
}

struct Levels {
  std::uint16_t first;
  std::uint16_t second;
};

class WrongLevels : public JobTest, public testing::WithParamInterface<Levels> {};

TEST_P(WrongLevels, AreRefusedAndNothingIsLogged) {
  initialise();
  InitInput input;
  input.level1 = GetParam().first;
  input.level2 = GetParam().second;
  const Answer answer = host.init("Block_size=0", input);
  EXPECT_EQ(answer.code, pmrcBadInterfaceLevel);
  EXPECT_FALSE(answer.text);
  EXPECT_EQ(host.moduleHandle, nullptr);
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptInit", 1)));
}

INSTANTIATE_TEST_SUITE_P(Init, WrongLevels,
                         testing::Values(Levels{1001, 2000}, Levels{1001, 2002}, Levels{1000, 2001},
                                         Levels{2001, 1001}, Levels{0, 0}));

TEST_F(Init, LeavesNothingBehindWhenItRefuses) {
  initialise();
  host.init("Bogus=1");
  const std::size_t before = heapBlocks();
  for (int i = 0; i < 10; ++i) EXPECT_EQ(host.init("Bogus=1 Block_size=1").code, 21u);
  EXPECT_EQ(heapBlocks(), before);
}

TEST_F(Init, TakesANullStringForAnEmptyOne) {
  initialise();
  InitInput input;
  input.nullString = true;
  EXPECT_EQ(host.init("", input).code, pmrcSuccess);
  EXPECT_NE(host.moduleHandle, nullptr);
}

TEST_F(Init, TakesTheLongestModuleName) {
  InitInput input;
  input.moduleName.assign(TALLOW_MODULE_NAME_SIZE - 1, 'm');
  EXPECT_EQ(host.init(logOptions(), input).code, pmrcSuccess);
}

// The room for the name ends where the next field begins, whatever length the host gives.
class TooLongName : public JobTest, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(TooLongName, EndsWithItsField) {
  initialise();
  std::string options = "Block_size=77";
  GuardedMemory block(sizeof(TallowInitBlock));
  block.put(42, std::uint16_t{TALLOW_INTERFACE_LEVEL_1});
  block.put(44, std::uint16_t{TALLOW_INTERFACE_LEVEL_2});
  block.put(46, GetParam());
  block.put(823, static_cast<std::uint32_t>(options.size()));
  block.put(827, options.data());
  block.remember();
  TallowRequestBlock request{};
  request.requestCode = pmiPIDMOptInit;
  loaded->entry()(&request, block.data());
  EXPECT_EQ(request.returnCode + 0, pmrcSuccess);
  constexpr std::array kWritable{ByteRange{34, 8}, ByteRange{822, 1}};
  EXPECT_EQ(block.changesOutside(kWritable), "");
  EXPECT_EQ(block.get<char>(822), '\0');
}

INSTANTIATE_TEST_SUITE_P(Init, TooLongName,
                         testing::Values(769u, 770u, 5000u, 0x80000000u, 0xffffffffu));

TEST_F(Init, TwoOfThemAreIndependent) {
  initialise("Block_size=100");
  void* first = host.moduleHandle;
  initialise("Block_size=200");
  EXPECT_NE(host.moduleHandle, first);
  ASSERT_EQ(host.open(uniquePipeName()).code, pmrcSuccess);
  EXPECT_EQ(host.blockSize, 200u);
  host.moduleHandle = first;
  ASSERT_EQ(host.open(uniquePipeName()).code, pmrcSuccess);
  EXPECT_EQ(host.blockSize, 100u);
}

class BothCloses : public JobTest, public testing::WithParamInterface<bool> {
 protected:
  Answer closeIt() { return GetParam() ? host.closeR() : host.close(); }
};

TEST_P(BothCloses, CloseThePipe) {
  openJob();
  PipeEnd writer = PipeEnd::connect(pipeName);
  EXPECT_EQ(closeIt().code, pmrcSuccess);
  EXPECT_THROW(writer.write("data"), std::runtime_error);
  writer.close();
  EXPECT_FALSE(pipeExists(pipeName));
  EXPECT_THAT(log.newEntries(), ElementsAre(GetParam() ? requestLine("pmiPIDMOptCloseR", 10)
                                                       : requestLine("pmiPIDMOptClose", 3)));
}

TEST_P(BothCloses, GiveEverythingBack) {
  openJob("Block_size=4096");
  closeIt();
  const std::size_t handles = openHandles();
  const std::size_t blocks = heapBlocks();
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
    closeIt();
  }
  EXPECT_EQ(openHandles(), handles);
  EXPECT_EQ(heapBlocks(), blocks);
}

TEST_P(BothCloses, LeaveTheOtherInputsAlone) {
  openJob("Block_size=4");
  void* const first = host.instance;
  const std::string secondName = uniquePipeName();
  ASSERT_EQ(host.open(secondName).code, pmrcSuccess);
  PipeEnd writer = PipeEnd::connect(secondName);
  writer.write("data");
  void* const second = host.instance;
  host.instance = first;
  EXPECT_EQ(closeIt().code, pmrcSuccess);
  host.instance = second;
  EXPECT_EQ(host.read().data, "data");
}

INSTANTIATE_TEST_SUITE_P(Close, BothCloses, testing::Bool(), [](const auto& instance) {
  return std::string(instance.param ? "R" : "Plain");
});

const std::regex kVersion("[0-9]{2}\\.[0-9]{2}\\.[0-9]{2}\\.[0-9]{2}");

TEST_F(Identify, AnswersTheModulesOwnFile) {
  initialise();
  const IdAnswer answer = host.id();
  EXPECT_EQ(answer.code, pmrcSuccess);
  EXPECT_THAT(answer.name, testing::AnyOf("tallowin.dll", "tallowin"));
  EXPECT_EQ(answer.version, "01.00.00.00");
  EXPECT_THAT(log.newEntries(), ElementsAre(requestLine("pmiPIDMOptID", 9)));
}

TEST_F(Identify, ListsTheComponentsInOrder) {
  const IdAnswer answer = host.id();
  ASSERT_NE(answer.components, nullptr);
  std::vector<std::string> names;
  for (const TallowComponentVersion* entry = answer.components; entry; entry = entry->next) {
    names.emplace_back(entry->name);
    EXPECT_TRUE(std::regex_match(entry->version, kVersion)) << entry->version;
    if (names.back() == "TALLOW" || names.back() == "INSTANCE") {
      EXPECT_EQ(entry->version, answer.version);
    }
  }
  EXPECT_THAT(names, ElementsAre("TALLOW", "DDAMLOG", "ERROR", "FILEDATA", "FSTRING", "INSTANCE",
                                 "PIDMMAIN"));
}

TEST_F(Identify, NeedsNoInit) {
  EXPECT_EQ(host.id().code, pmrcSuccess);
}

TEST_F(Identify, AnswersTheSameAgain) {
  const TallowComponentVersion* first = host.id().components;
  const IdAnswer again = host.id();
  EXPECT_EQ(again.components, first);
}

TEST_F(Identify, CutsALongFileTitle) {
  const std::string title(100, 't');
  Hook<struct TitleTag, short(LPCSTR, LPSTR, WORD)> hook(
      module(), "GetFileTitleA", [&](LPCSTR, LPSTR buffer, WORD size) -> short {
        EXPECT_GT(size, title.size());
        std::copy_n(title.c_str(), title.size() + 1, buffer);
        return 0;
      });
  EXPECT_EQ(host.id().name, title.substr(0, 31));
}

TEST_F(Identify, AsksForTheFileNameWithRoomForALongOne) {
  std::vector<DWORD> sizes;
  Hook<struct NameTag, DWORD(HMODULE, LPSTR, DWORD)> hook(
      module(), "GetModuleFileNameA", [&](HMODULE file, LPSTR name, DWORD size) {
        sizes.push_back(size);
        return hook.original(file, name, size);
      });
  EXPECT_EQ(host.id().code, pmrcSuccess);
  EXPECT_THAT(sizes, ElementsAre(261));
}

void expectFailure(const IdAnswer& answer, LogReader& log, int id) {
  EXPECT_EQ(answer.code, pmrcFailed);
  const std::vector<LogLine> lines = log.newLines();
  EXPECT_THAT(entriesOf(lines), ElementsAre(requestLine("pmiPIDMOptID", 9), message(2, id)));
}

TEST_F(Identify, ReportsAMissingFileName) {
  initialise();
  Hook<struct NameTag, DWORD(HMODULE, LPSTR, DWORD)> hook(module(), "GetModuleFileNameA",
                                                          [](HMODULE, LPSTR, DWORD) -> DWORD {
                                                            SetLastError(ERROR_ACCESS_DENIED);
                                                            return 0;
                                                          });
  const IdAnswer answer = host.id();
  expectFailure(answer, log, 39);
  EXPECT_THAT(answer.text.value_or(""), HasSubstr(systemText(ERROR_ACCESS_DENIED)));
}

// The module's own version first, then that of the language library.
class IdentifyVersion : public Identify, public testing::WithParamInterface<int> {};

TEST_P(IdentifyVersion, IsReportedWhenItIsMissing) {
  initialise();
  int calls = 0;
  Hook<struct SizeTag, DWORD(LPCSTR, DWORD*)> hook(module(), "GetFileVersionInfoSizeA",
                                                   [&](LPCSTR file, DWORD* ignored) -> DWORD {
                                                     if (++calls != GetParam())
                                                       return hook.original(file, ignored);
                                                     SetLastError(ERROR_ACCESS_DENIED);
                                                     return 0;
                                                   });
  const IdAnswer answer = host.id();
  expectFailure(answer, log, 40);
  EXPECT_THAT(answer.text.value_or(""), HasSubstr(systemText(ERROR_ACCESS_DENIED)));
}

TEST_P(IdentifyVersion, IsReportedWhenItCannotBeRead) {
  initialise();
  int calls = 0;
  Hook<struct InfoTag, BOOL(LPCSTR, DWORD, DWORD, void*)> hook(
      module(), "GetFileVersionInfoA", [&](LPCSTR file, DWORD ignored, DWORD size, void* data) {
        if (++calls != GetParam()) return hook.original(file, ignored, size, data);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      });
  const IdAnswer answer = host.id();
  expectFailure(answer, log, 41);
  EXPECT_THAT(answer.text.value_or(""), HasSubstr(systemText(ERROR_ACCESS_DENIED)));
}

INSTANTIATE_TEST_SUITE_P(BothLibraries, IdentifyVersion, testing::Values(1, 2));

TEST_F(Identify, ReportsAMissingVersionBlock) {
  initialise();
  Hook<struct QueryTag, BOOL(const void*, LPCSTR, void**, UINT*)> hook(
      module(), "VerQueryValueA", [](auto...) { return FALSE; });
  const IdAnswer answer = host.id();
  expectFailure(answer, log, 42);
  EXPECT_EQ(answer.text, messageText(42));
}

TEST_F(Unload, ClosesTheJobsThatAreStillOpen) {
  openJob();
  const std::string secondName = uniquePipeName();
  ASSERT_EQ(host.open(secondName).code, pmrcSuccess);
  loaded.reset();
  EXPECT_FALSE(pipeExists(pipeName));
  EXPECT_FALSE(pipeExists(secondName));
}

TEST_F(Unload, KeepsTheFallbackFileOfAnOpenJob) {
  ASSERT_EQ(host.init("Fallback_file=kept.fbf Fallback_Directory='" + scratch.path() + "'").code,
            pmrcSuccess);
  ASSERT_EQ(host.open(pipeName).code, pmrcSuccess);
  ASSERT_EQ(host.getPos().code, pmrcSuccess);
  loaded.reset();
  EXPECT_TRUE(exists(scratch.file("kept.fbf")));
}

// Counts the module's calls to the system timer.
class TimerCalls {
 public:
  explicit TimerCalls(HMODULE module)
      : begin_(module, "timeBeginPeriod",
               [this](UINT period) {
                 ++asked;
                 held += static_cast<int>(period);
                 return begin_.original(period);
               }),
        end_(module, "timeEndPeriod", [this](UINT period) {
          held -= static_cast<int>(period);
          return end_.original(period);
        }) {}

  int asked = 0;
  int held = 0;

 private:
  Hook<struct BeginTag, MMRESULT(UINT)> begin_;
  Hook<struct EndTag, MMRESULT(UINT)> end_;
};

using TimerPeriod = JobTest;

TEST_F(TimerPeriod, IsHeldWhileAPipeIsOpenInAnyOrderOfOpensAndCloses) {
  TimerCalls calls(module());
  openJob();
  void* const first = host.instance;
  EXPECT_GT(calls.held, 0);
  ASSERT_EQ(host.open(uniquePipeName()).code, pmrcSuccess);
  void* const second = host.instance;
  host.instance = first;
  host.close();
  EXPECT_GT(calls.held, 0);
  ASSERT_EQ(host.open(uniquePipeName()).code, pmrcSuccess);
  host.closeR();
  EXPECT_GT(calls.held, 0);
  host.instance = second;
  host.close();
  EXPECT_EQ(calls.held, 0);
}

TEST_F(TimerPeriod, IsGivenBackByAnOpenThatFails) {
  TimerCalls calls(module());
  initialise();
  EXPECT_EQ(host.open("no pipe").code, pmrcFailed);
  EXPECT_EQ(host.open(R"(\\.\pipe\)").code, pmrcFailed);
  EXPECT_EQ(calls.held, 0);
}

TEST_F(TimerPeriod, IsNotEndedWhenTheSystemRefusedIt) {
  Hook<struct BeginTag, MMRESULT(UINT)> begin(module(), "timeBeginPeriod",
                                              [](UINT) { return MMRESULT{TIMERR_NOCANDO}; });
  int ended = 0;
  Hook<struct EndTag, MMRESULT(UINT)> end(module(), "timeEndPeriod", [&](UINT) {
    ++ended;
    return MMRESULT{TIMERR_NOERROR};
  });
  openJob();
  EXPECT_EQ(host.close().code, pmrcSuccess);
  EXPECT_EQ(ended, 0);
}

TEST_F(TimerPeriod, IsGivenBackAtUnload) {
  TimerCalls calls(module());
  openJob();
  loaded.reset();
  EXPECT_GT(calls.asked, 0);
  EXPECT_EQ(calls.held, 0);
}

// Opens a job with a fallback file, while data is being sent, and ends the process without a Close
// and without unloading.
const ChildWork kEndWithoutUnload("end without unload", [](const std::vector<std::string>& words) {
  const std::string& directory = words.at(0);
  Module module;
  Host host(module);
  const std::string pipeName = uniquePipeName();
  if (host.init("Log_directory='" + directory + "' Log_level=6 Block_size=4 Fallback_file=f.fbf " +
                "Fallback_Directory='" + directory + "'")
          .code != pmrcSuccess) {
    return 1;
  }
  if (host.open(pipeName).code != pmrcSuccess) return 2;
  PipeEnd writer = PipeEnd::connect(pipeName);
  writer.write("datadata");
  if (host.read().data != "data") return 3;
  if (host.getPos().code != pmrcSuccess) return 4;
  ExitProcess(77);  // destroys nothing
});

using ProcessEnd = JobTest;

TEST_F(ProcessEnd, WithoutUnloadEndsWithTheProcesssOwnExitCode) {
  EXPECT_EQ(runChild("end without unload", {scratch.path()}), 77u);
}

TEST_F(ProcessEnd, WithoutUnloadLeavesTheLogAndTheFallbackFileWhole) {
  runChild("end without unload", {scratch.path()});
  const std::vector<LogLine> lines = log.newLines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back().text, "GetPos returns block no. 1.");
  ASSERT_TRUE(exists(scratch.file("f.fbf")));
  EXPECT_EQ(contentOf(scratch.file("f.fbf")).size(), kDataStart) << "header and sync area";
}

}  // namespace
}  // namespace tallow::test
