#include <windows.h>

#include <map>
#include <memory>
#include <type_traits>
#include <vector>

#include "jobs/scenarios.hpp"
#include "support/import_hook.hpp"

namespace tallow::bench {

namespace {

using Counts = std::map<std::string, std::int64_t>;

// Counts the calls of one function that a library imports, as long as it lives.
template <class Tag, class Signature>
class Counter;

template <class Tag, class Result, class... Arguments>
class Counter<Tag, Result(Arguments...)> {
 public:
  Counter(const char* library, const char* function, Counts& counts)
      : hook_(GetModuleHandleA(library), function,
              [this, &count = counts[std::string(library) + " " + function]](Arguments... given) {
                ++count;
                return hook_.original(given...);
              }) {}

 private:
  test::Hook<Tag, Result(Arguments...)> hook_;
};

// What the module and the run-time library ask of the system during one job.
Counts countCalls(JobRunner& runner, const Shape& shape, const Stream& stream) {
  Counts counts;
  const char* own = "tallowin.dll";
  const char* runTime = "msvcrt.dll";
  const Counter<struct A, std::remove_pointer_t<decltype(&::Sleep)>> a(own, "Sleep", counts);
  const Counter<struct B, std::remove_pointer_t<decltype(&::ReadFile)>> b(own, "ReadFile", counts);
  const Counter<struct C, std::remove_pointer_t<decltype(&::ReadFile)>> c(runTime, "ReadFile",
                                                                          counts);
  const Counter<struct D, std::remove_pointer_t<decltype(&::WriteFile)>> d(runTime, "WriteFile",
                                                                           counts);
  const Counter<struct E, std::remove_pointer_t<decltype(&::CreateFileW)>> e(runTime, "CreateFileW",
                                                                             counts);
  const Counter<struct F, std::remove_pointer_t<decltype(&::CloseHandle)>> f(runTime, "CloseHandle",
                                                                             counts);
  const Counter<struct G, std::remove_pointer_t<decltype(&::FlushFileBuffers)>> g(
      runTime, "FlushFileBuffers", counts);
  const Counter<struct H, std::remove_pointer_t<decltype(&::SetFilePointer)>> h(
      runTime, "SetFilePointer", counts);
  runner.run(shape, stream);
  return counts;
}

}  // namespace

Json calls(JobRunner& runner, const Json& request) {
  Shape shape = request.at("shape");
  const Stream stream(
      static_cast<std::size_t>(std::max<std::uint64_t>(shape.blockSize, shape.chunk)));
  const std::uint64_t blocks = shape.total / shape.blockSize;
  countCalls(runner, shape, stream);  // the first job also sets the log up
  const Counts once = countCalls(runner, shape, stream);
  shape.total *= 2;
  const Counts twice = countCalls(runner, shape, stream);
  Json result;
  for (const auto& [name, count] : twice) {
    result[name] = static_cast<double>(count - once.at(name)) / static_cast<double>(blocks);
  }
  return {{"calls", result}};
}

}  // namespace tallow::bench
