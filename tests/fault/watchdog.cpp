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

// The processor time that the watched thread has used.
double processorSeconds() {
  constexpr double kTicks = 1e7;  // a second
  FILETIME created = {};
  FILETIME ended = {};
  FILETIME kernel = {};
  FILETIME user = {};
  GetThreadTimes(watched, &created, &ended, &kernel, &user);
  const auto ticks = [](const FILETIME& time) {
    return static_cast<double>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart);
  };
  return (ticks(kernel) + ticks(user)) / kTicks;
}

DWORD WINAPI watch(void*) {
  constexpr DWORD kLook = 1000;  // milliseconds
  unsigned seen = 0;
  unsigned still = 0;
  double usedBefore = 0;
  for (;;) {
    Sleep(kLook);
    const double used = processorSeconds();
    if (runs != seen) usedBefore = used;
    still = runs == seen ? still + 1 : 0;
    seen = runs;
    if (still >= limit && seen != 0) {
      // A waiting thread uses no processor time; one that used a little had to share the machine.
      std::fprintf(stderr, "hang in %s (%.2f of %u seconds on a processor), at\n", current,
                   used - usedBefore, still);
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
