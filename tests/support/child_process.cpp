#include "support/child_process.hpp"

#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <map>
#include <stdexcept>
#include <string_view>

namespace tallow::test {
namespace {

constexpr std::string_view kChildSwitch = "--child";
constexpr DWORD kChildMilliseconds = 120'000;
constexpr unsigned kChildHung = 0xdead;

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

PROCESS_INFORMATION startProcess(const std::string& command, STARTUPINFOA& startup) {
  constexpr int kTries = 3;
  DWORD error = 0;
  for (int i = 0; i < kTries; ++i) {
    std::string line = command;
    PROCESS_INFORMATION process{};
    // Standard handles must be inherited if they are given.
    const BOOL inherits = (startup.dwFlags & STARTF_USESTDHANDLES) != 0 ? TRUE : FALSE;
    if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, inherits, 0, nullptr, nullptr,
                       &startup, &process)) {
      return process;
    }
    error = GetLastError();
  }
  throw std::runtime_error(std::to_string(error) + ": cannot start " + command);
}

unsigned runChild(const std::string& name, const std::vector<std::string>& arguments) {
  std::array<char, MAX_PATH> program{};
  GetModuleFileNameA(nullptr, program.data(), static_cast<DWORD>(program.size()));
  std::string command = '"' + std::string(program.data()) + "\" --child \"" + name + '"';
  for (const std::string& argument : arguments) command += " \"" + argument + '"';
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  const PROCESS_INFORMATION process = startProcess(command, startup);
  if (WaitForSingleObject(process.hProcess, kChildMilliseconds) != WAIT_OBJECT_0) {
    TerminateProcess(process.hProcess, kChildHung);
    WaitForSingleObject(process.hProcess, INFINITE);
  }
  DWORD code = 0;
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return code;
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
