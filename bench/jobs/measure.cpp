#include "jobs/measure.hpp"

#include <windows.h>

#include <psapi.h>

namespace tallow::bench {

double Stopwatch::now() {
  LARGE_INTEGER frequency;
  LARGE_INTEGER count;
  QueryPerformanceFrequency(&frequency);
  QueryPerformanceCounter(&count);
  return static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

std::uint64_t workingSet() {
  PROCESS_MEMORY_COUNTERS counters = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return counters.WorkingSetSize;
}

double processorTime() {
  FILETIME created;
  FILETIME ended;
  FILETIME kernel;
  FILETIME user;
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  constexpr double kTicks = 1e7;  // in a second
  const auto seconds = [](const FILETIME& time) {
    return static_cast<double>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) /
           kTicks;
  };
  return seconds(kernel) + seconds(user);
}

}  // namespace tallow::bench
