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

using Counts = std::map<std::string, std::int64_t>;
constexpr const char* kBlocks = "blocks";

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
  const Counter<struct I, void*(std::size_t)> i(own, "malloc", counts);
  const Counter<struct J, void*(std::size_t, std::size_t)> j(own, "calloc", counts);
  const Counter<struct K, void*(void*, std::size_t)> k(own, "realloc", counts);
  counts[kBlocks] = static_cast<std::int64_t>(runner.run(shape, stream).blocks);
  return counts;
}

}  // namespace

Json calls(JobRunner& runner, const Json& request) {
  Shape shape = request.at("shape");
  const Stream stream(
      static_cast<std::size_t>(std::max<std::uint64_t>(shape.blockSize, shape.chunk)));
  countCalls(runner, shape, stream);  // the first job also sets the log up
  const Counts once = countCalls(runner, shape, stream);
  shape.total *= 2;
  const Counts twice = countCalls(runner, shape, stream);
  const auto grown = [&](const std::string& name) {
    return static_cast<double>(twice.at(name) - once.at(name));
  };
  Json result;
  for (const auto& [name, count] : twice) result[name] = grown(name) / grown(kBlocks);
  return {{"calls", result}};
}

}  // namespace tallow::bench
