// The example hosts are ended before each of their steps and started again: in the end the output
// is the data, byte for byte, and no fallback file is left.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"
#include "system/feeding_pipe.hpp"

namespace tallow::test {
namespace {

constexpr std::size_t kBlock = 512;
// Two checkpoints and some blocks after the second.
constexpr std::size_t kBytes = (2 * 64 + 5) * kBlock + 100;
constexpr unsigned kKilled = 137;
constexpr unsigned long kNever = 0;

bool isFull() {
  return std::getenv("TALLOW_FULL") != nullptr;
}

// False for most of the steps that deal with a block alone, of which there are many.
bool isOneOfFew(const std::vector<std::string>& names, std::size_t i) {
  const std::string& name = names[i];
  const bool isBlock = name == "Read" || (i != 0 && names[i - 1] == "Read");
  constexpr std::size_t kOneOf = 41;
  return !isBlock || i % kOneOf == 0;
}

class HostDeaths : public testing::TestWithParam<const char*> {
 protected:
  // Its exit status. Before the step `dieBefore` it is ended.
  unsigned runHost(unsigned long dieBefore) {
    FeedingPipe pipe(pipeName_, kBlock);
    const ScopedEnvironment die("TALLOW_DIE_BEFORE", std::to_string(dieBefore));
    const ScopedEnvironment report("TALLOW_STEPS", folder_.file("steps"));
    const std::string bin = programDirectory() + "\\";
    Process host({bin + "start_with.exe", bin + "host_deaths.dll", bin + GetParam(), pipeName_,
                  folder_.file("out"), folder_.path(), "Block_size=" + std::to_string(kBlock)},
                 folder_.file("said"));
    pipe.feed(data_, 4 * kBlock, std::nullopt, [] {});
    const unsigned status = host.exitCode();
    pipe.join();
    return status;
  }
  void expectDone() {
    EXPECT_TRUE(contentOf("out") == data_) << "the output differs";
    EXPECT_FALSE(exists("job.fbf"));
    EXPECT_FALSE(exists("job.note.new"));
    EXPECT_TRUE(exists("job.note"));
  }
  std::string contentOf(const std::string& name) const {
    std::ifstream file(folder_.file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  bool exists(const std::string& name) const { return std::filesystem::exists(folder_.file(name)); }
  // The names of the steps of a run without a death.
  std::vector<std::string> stepNames() {
    EXPECT_EQ(runHost(kNever), 0U) << contentOf("said");
    std::ifstream file(folder_.file("steps"));
    std::vector<std::string> names;
    for (std::string name; std::getline(file, name);) names.push_back(name);
    expectDone();
    folder_.removeFiles();
    return names;
  }
  void dieAndFinish(const std::vector<unsigned long>& deaths) {
    for (const unsigned long step : deaths) {
      const unsigned status = runHost(step);
      if (status == 0) break;  // what is left of the job has fewer steps
      ASSERT_EQ(status, kKilled) << contentOf("said");
    }
    ASSERT_EQ(runHost(kNever), 0U) << contentOf("said");
    expectDone();
    folder_.removeFiles();
  }

  const std::string data_ = sampleData(kBytes);
  const std::string pipeName_ = uniquePipeName();
  const ScratchDirectory folder_;
};

TEST_P(HostDeaths, OneAtEveryStepLosesNothing) {
  const std::vector<std::string> names = stepNames();
  ASSERT_GT(names.size(), 200U);
  int deaths = 0;
  for (std::size_t i = 0; i < names.size() && !HasFatalFailure(); ++i) {
    if (!isFull() && !isOneOfFew(names, i)) continue;
    SCOPED_TRACE("before step " + std::to_string(i + 1) + ", " + names[i]);
    dieAndFinish({static_cast<unsigned long>(i + 1)});
    ++deaths;
  }
  RecordProperty("deaths", deaths);
}

// The first death leaves a job at its second checkpoint, or just before its note.
TEST_P(HostDeaths, ASecondOneAtEveryStepLosesNothing) {
  const std::vector<std::string> names = stepNames();
  const auto first = static_cast<unsigned long>(names.size() - names.size() / 10);
  int deaths = 0;
  for (std::size_t i = 0; i < names.size() / 2 && !HasFatalFailure(); ++i) {
    if (!isOneOfFew(names, i) || (!isFull() && i % 3 != 0)) continue;
    SCOPED_TRACE("before step " + std::to_string(i + 1) + ", " + names[i] + ", of the second run");
    dieAndFinish({first, static_cast<unsigned long>(i + 1)});
    ++deaths;
  }
  RecordProperty("deaths", deaths);
}

INSTANTIATE_TEST_SUITE_P(Examples, HostDeaths,
                         testing::Values("minimal_host.exe", "minimal_host_c.exe"),
                         [](const auto& host) {
                           const std::string name = host.param;
                           return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace tallow::test
