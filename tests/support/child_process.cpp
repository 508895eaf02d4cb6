#include "support/child_process.hpp"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <map>
#include <string_view>

#include "support/process.hpp"

namespace tallow::test {
namespace {

constexpr std::string_view kChildSwitch = "--child";

std::map<std::string, ChildWork::Function>& allWork() {
  static std::map<std::string, ChildWork::Function> work;
  return work;
}

// The crash of a child becomes its exit code; no debugger prints a report into the tests' output.
LONG CALLBACK endWithExceptionCode(EXCEPTION_POINTERS* exception) {
  TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

ChildWork::ChildWork(const std::string& name, Function work) {
  allWork().emplace(name, std::move(work));
}

unsigned runChild(const std::string& name, const std::vector<std::string>& arguments) {
  std::array<char, MAX_PATH> program{};
  GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
  std::vector<std::string> words{program.data(), std::string(kChildSwitch), name};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return Process(words).exitCode();
}

int runTests(int argc, char** argv) {
  // The system libraries that the module needs stay loaded, so that each load of it is quick.
  for (const char* library : {"advapi32.dll", "comdlg32.dll", "version.dll", "winmm.dll"}) {
    LoadLibraryA(library);
  }
  // The module uses the loading thread's language; the tests compare English texts.
  SetThreadLocale(MAKELCID(MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), SORT_DEFAULT));
  if (argc >= 3 && argv[1] == kChildSwitch) {
    SetUnhandledExceptionFilter(endWithExceptionCode);
    return allWork().at(argv[2])(std::vector<std::string>(argv + 3, argv + argc));
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

}  // namespace tallow::test
