#include "watchdog.hpp"

#include <windows.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "thread_stack.hpp"

namespace tallow::test {
namespace {

constexpr UINT kHung = 98;
constexpr UINT kCrashed = 99;

char current[512] = "no run";
std::atomic<unsigned> runs{0};
unsigned limit = 0;
HANDLE watched = nullptr;

LONG WINAPI nameTheRun(EXCEPTION_POINTERS* exception) {
  std::fprintf(stderr, "crash (%08lx) in %s\n", exception->ExceptionRecord->ExceptionCode, current);
  TerminateProcess(GetCurrentProcess(), kCrashed);
  return EXCEPTION_EXECUTE_HANDLER;
}

void nameTheAbortedRun(int) {
  std::fprintf(stderr, "aborted in %s\n", current);
  TerminateProcess(GetCurrentProcess(), kCrashed);
}

DWORD WINAPI watch(void*) {
  constexpr DWORD kLook = 1000;  // milliseconds
  unsigned seen = 0;
  unsigned still = 0;
  for (;;) {
    Sleep(kLook);
    still = runs == seen ? still + 1 : 0;
    seen = runs;
    if (still >= limit && seen != 0) {
      std::fprintf(stderr, "hang in %s, at\n", current);
      printStack(watched);
      TerminateProcess(GetCurrentProcess(), kHung);
    }
  }
}

}  // namespace

void startWatchdog(unsigned seconds) {
  limit = seconds;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &watched, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  SetUnhandledExceptionFilter(nameTheRun);
  std::signal(SIGABRT, nameTheAbortedRun);
  CloseHandle(CreateThread(nullptr, 0, watch, nullptr, 0, nullptr));
}

void watchRun(const std::string& name) {
  std::strncpy(current, name.c_str(), sizeof current - 1);
  ++runs;
}

}  // namespace tallow::test
