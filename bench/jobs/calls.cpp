#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <type_traits>
#include <vector>

#include "jobs/scenarios.hpp"
#include "support/import_hook.hpp"

namespace tallow::bench {
namespace {

struct Calls {
  std::int64_t count = 0;
  double seconds = 0;
};
using CallTable = std::map<std::string, Calls>;

constexpr const char* kJob = "job";  // its blocks and the time they took

class Timer {
 public:
  explicit Timer(Calls& calls) : calls_(calls) {}
  ~Timer() {
    ++calls_.count;
    calls_.seconds += stopwatch_.seconds();
  }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

 private:
  Calls& calls_;
  Stopwatch stopwatch_;
};

// While it exists, counts and times a library's calls of one function that it imports.
template <class Tag, class Signature>
class Counter;

template <class Tag, class Result, class... Arguments>
class Counter<Tag, Result(Arguments...)> {
 public:
  Counter(const char* library, const char* function, CallTable& table)
      : hook_(GetModuleHandleA(library), function,
              [this, &calls = table[std::string(library) + " " + function]](Arguments... given) {
                const Timer timer(calls);
                return hook_.original(given...);
              }) {}

 private:
  test::Hook<Tag, Result(Arguments...)> hook_;
};

// The system calls that the module and the run-time library make during one job.
CallTable watchCalls(JobRunner& runner, const Shape& shape, const Stream& stream) {
  CallTable table;
  const char* own = "tallowin.dll";
  const char* runTime = "msvcrt.dll";
  const Counter<struct A, std::remove_pointer_t<decltype(&::Sleep)>> a(own, "Sleep", table);
  const Counter<struct B, std::remove_pointer_t<decltype(&::ReadFile)>> b(own, "ReadFile", table);
  const Counter<struct C, std::remove_pointer_t<decltype(&::ReadFile)>> c(runTime, "ReadFile",
                                                                          table);
  const Counter<struct D, std::remove_pointer_t<decltype(&::WriteFile)>> d(runTime, "WriteFile",
                                                                           table);
  const Counter<struct E, std::remove_pointer_t<decltype(&::CreateFileW)>> e(runTime, "CreateFileW",
                                                                             table);
  const Counter<struct F, std::remove_pointer_t<decltype(&::CloseHandle)>> f(runTime, "CloseHandle",
                                                                             table);
  const Counter<struct G, std::remove_pointer_t<decltype(&::FlushFileBuffers)>> g(
      runTime, "FlushFileBuffers", table);
  const Counter<struct H, std::remove_pointer_t<decltype(&::SetFilePointer)>> h(
      runTime, "SetFilePointer", table);
  const Counter<struct I, void*(std::size_t)> i(own, "malloc", table);
  const Counter<struct J, void*(std::size_t, std::size_t)> j(own, "calloc", table);
  const Counter<struct K, void*(void*, std::size_t)> k(own, "realloc", table);
  const Timing timing = runner.run(shape, stream);
  table[kJob] = {static_cast<std::int64_t>(timing.blocks), timing.seconds};
  return table;
}

}  // namespace

Json calls(JobRunner& runner, const Json& request) {
  Shape shape = request.at("shape");
  const Stream stream(
      static_cast<std::size_t>(std::max<std::uint64_t>(shape.blockSize, shape.chunk)));
  watchCalls(runner, shape, stream);  // the first job also sets up the log
  const CallTable once = watchCalls(runner, shape, stream);
  shape.total *= 2;
  const CallTable twice = watchCalls(runner, shape, stream);
  const auto blocks = static_cast<double>(twice.at(kJob).count - once.at(kJob).count);
  Json result = {{"calls", Json::object()}, {"seconds", Json::object()}};
  for (const auto& [name, calls] : twice) {
    result["calls"][name] = static_cast<double>(calls.count - once.at(name).count) / blocks;
    result["seconds"][name] = (calls.seconds - once.at(name).seconds) / blocks;
  }
  return result;
}

}  // namespace tallow::bench
