// Whole jobs, over and over, while one imported function fails at its first, second, … call.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "faults.hpp"
#include "job_plans.hpp"
#include "job_run.hpp"
#include "memory_count.hpp"
#include "schedule.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/surroundings.hpp"
#include "system_libraries.hpp"
#include "unswept_imports.hpp"
#include "watchdog.hpp"

namespace tallow::test {
namespace {

constexpr unsigned kLongestRun = 300;  // seconds
constexpr std::size_t kEachCall = std::numeric_limits<std::size_t>::max();

#if defined(TALLOW_COVERAGE)
constexpr bool kCountsCoverage = true;
#else
constexpr bool kCountsCoverage = false;
#endif

// The calls that write the coverage counters fail like the module's own, and the counts so far are
// then lost. So each fault has its own counters.
class CountersOf {
 public:
  explicit CountersOf(const Fault& fault) {
    if (kCountsCoverage) setFolder(folder_ + "-" + fault.function);
  }
  ~CountersOf() {
    if (kCountsCoverage) setFolder(folder_);
  }
  CountersOf(const CountersOf&) = delete;
  CountersOf& operator=(const CountersOf&) = delete;

 private:
  static std::string folder() {
    const char* given = std::getenv("GCOV_PREFIX");
    return given != nullptr ? given : ".";
  }
  static void setFolder(const std::string& folder) { _putenv(("GCOV_PREFIX=" + folder).c_str()); }

  std::string folder_ = folder();
};

std::string describe(const std::vector<std::string>& problems) {
  std::string text;
  for (const std::string& problem : problems) text += "\n  " + problem;
  return text;
}

class Sweep : public testing::TestWithParam<JobPlan> {
 protected:
  static void SetUpTestSuite() {
    keepSystemLibraries();
    static const bool watched = (startWatchdog(kLongestRun), true);
    static_cast<void>(watched);
  }

  // Runs the plan once and returns the number of injected failures.
  std::size_t run(const Fault* fault, std::size_t first, bool andAllAfter) {
    const std::string name =
        GetParam().name + (fault == nullptr
                               ? ", nothing fails"
                               : ", " + fault->function + " " + fault->failure + " at call " +
                                     std::to_string(first) + (andAllAfter ? " and after" : ""));
    SCOPED_TRACE(name);
    watchRun(name);
    folder_.removeFiles();
    std::size_t injected = 0;
    std::vector<std::string> problems;
    bool wentAsPlanned = false;
    {
      JobRun job(GetParam(), fault, folder_.path());
      if (fault != nullptr) faultSchedule().arm(first, andAllAfter, fault->most);
      GetParam().script(job);
      faultSchedule().disarm();
      wentAsPlanned = job.wentAsPlanned();
      injected = fault != nullptr ? faultSchedule().injected() : 0;
      job.finishInPeace();
      problems = job.problems();
    }
    ++runs_;
    EXPECT_THAT(problems, testing::IsEmpty()) << describe(problems);
    if (fault == nullptr) {
      EXPECT_TRUE(wentAsPlanned);
    }
    return injected;
  }

  static void expectBlocks(long before, const std::string& what) {
    if (kCountsCoverage) return;  // the counters hold blocks and files too
    EXPECT_EQ(blocksHeld(), before) << "heap blocks, " << what;
  }

  static void expectHandles(std::size_t before, const std::string& what) {
    if (kCountsCoverage) return;
    // The system may take a moment to close the handles of a writer's thread.
    std::size_t handles = openHandles();
    for (int i = 0; i < 100 && handles > before; ++i) {
      Sleep(1);
      handles = openHandles();
    }
    EXPECT_LE(handles, before) << "handles, " << what;
  }

  // Runs the plan with a failure at each call in turn or, if `tries` is limited, at `tries` calls
  // that lie ever further apart. Returns the number of injected failures.
  std::size_t sweepCalls(const Fault& fault, std::size_t tries, bool andAllAfter) {
    std::size_t all = 0;
    std::size_t first = 1;
    for (std::size_t tried = 0; tried < tries; ++tried) {
      const long blocks = blocksHeld();
      const std::size_t injected = run(&fault, first, andAllAfter);
      expectBlocks(blocks, fault.function + " " + fault.failure + " at call " +
                               std::to_string(first) + (andAllAfter ? " and after" : ""));
      all += injected;
      if (HasFailure() || injected == 0) break;
      first += tries == kEachCall ? 1 : tried + 1;
    }
    return all;
  }

  // First each call alone, then each call together with all that follow.
  void sweep(const Fault& fault, std::size_t tries) {
    for (const bool andAllAfter : {false, true}) {
      // To count handles takes as long as a run, so they are compared only with those before all
      // runs.
      const std::size_t handles = openHandles();
      const std::size_t injected = sweepCalls(fault, tries, andAllAfter);
      expectHandles(handles, fault.function + " " + fault.failure);
      if (HasFailure() || injected == 0) return;
    }
  }

  void sweepAll(std::size_t tries) {
    // What the system takes only once: at the first job, and at the first load that is refused.
    run(nullptr, 0, false);
    const auto memory = std::find_if(faults().begin(), faults().end(),
                                     [](const Fault& fault) { return fault.function == "malloc"; });
    run(&*memory, 1, true);
    const long blocks = blocksHeld();
    const std::size_t handles = openHandles();
    run(nullptr, 0, false);
    expectBlocks(blocks, "nothing fails");
    expectHandles(handles, "nothing fails");
    for (const Fault& fault : faults()) {
      if (HasFatalFailure()) return;
      const CountersOf counters(fault);
      sweep(fault, tries);
    }
    std::printf("%s: %zu runs\n", GetParam().name.c_str(), runs_);
  }

 private:
  ScratchDirectory folder_;
  ScopedCurrentDirectory current_{folder_.path()};
  ScopedEnvironment noLogDirectory_{"NPLOGDIR", std::nullopt};
  ScopedEnvironment temp_{"TEMP", folder_.path()};
  std::size_t runs_ = 0;
};

std::string nameOf(const testing::TestParamInfo<JobPlan>& info) {
  return info.param.name;
}

// Every import is either swept or listed with the reason why it is not.
TEST(FaultTable, NamesEveryImport) {
#ifndef NDEBUG
  GTEST_SKIP() << "assertions and instruments have imports that the module that ships has not";
#endif
  std::set<std::string> named;
  for (const Fault& fault : faults()) named.insert(fault.function);
  for (const Unswept& group : unsweptImports()) {
    for (const std::string& function : group.functions) {
      EXPECT_TRUE(named.insert(function).second) << function << " is named twice";
    }
  }
  const Module module;
  for (const std::string& import : importedNames(module.handle())) {
    EXPECT_TRUE(named.contains(import)) << import << " is neither swept nor excepted";
  }
}

TEST_P(Sweep, KeepsTheRulesWhateverFails) {
  constexpr std::size_t kTries = 3;
  sweepAll(kTries);
}

INSTANTIATE_TEST_SUITE_P(Quick, Sweep, testing::ValuesIn(jobPlans()), nameOf);

using FullSweep = Sweep;

TEST_P(FullSweep, KeepsTheRulesWhateverFails) {
  sweepAll(kEachCall);
}

INSTANTIATE_TEST_SUITE_P(Full, FullSweep, testing::ValuesIn(jobPlans()), nameOf);

}  // namespace
}  // namespace tallow::test
