// The test support itself notices what it claims to notice.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

#include "support/child_process.hpp"
#include "support/guarded_memory.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/log_reader.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

const ChildWork kTouchGuardPage("touch guard page", [](const std::vector<std::string>&) {
  const GuardedMemory block(10);
  auto* after = const_cast<volatile std::uint8_t*>(block.data() + block.size());
  *after = 1;
  return 0;
});

const ChildWork kEcho("answer the number", [](const std::vector<std::string>& arguments) {
  return std::stoi(arguments.at(0));
});

TEST(GuardedMemory, NamesEveryByteThatChangedOutsideTheRanges) {
  GuardedMemory block(100);
  block.data()[-1] ^= 1;
  block.data()[5] ^= 1;
  block.data()[6] ^= 1;
  block.data()[99] ^= 1;
  constexpr std::array kWritable{ByteRange{6, 93}};
  EXPECT_EQ(block.changesOutside(kWritable), " -1 5 99");
}

TEST(GuardedMemory, EndsAtAPageThatCannotBeTouched) {
  EXPECT_EQ(runChild("touch guard page"), EXCEPTION_ACCESS_VIOLATION);
}

TEST(ChildProcess, AnswersItsExitCode) {
  EXPECT_EQ(runChild("answer the number", {"42"}), 42u);
}

TEST(ImportHook, StandsInForOneFunctionAndGoesAgain) {
  const Module module;
  const void* before = nullptr;
  {
    Hook<struct ThreadTag, DWORD()> hook(module.handle(), "GetCurrentThreadId", [] { return 1u; });
    EXPECT_NE(hook.original(), 1u);
    before = replaceImport(module.handle(), "GetCurrentThreadId", nullptr);
    replaceImport(module.handle(), "GetCurrentThreadId", const_cast<void*>(before));
  }
  void* after = replaceImport(module.handle(), "GetCurrentThreadId", nullptr);
  replaceImport(module.handle(), "GetCurrentThreadId", after);
  EXPECT_NE(before, after);
}

TEST(ImportHook, RefusesWhatIsNotImported) {
  const Module module;
  EXPECT_THROW(replaceImport(module.handle(), "NoSuchFunction", nullptr), std::runtime_error);
}

TEST(ScopedEnvironment, SetsAndRestoresWhatTheRunTimeLibrarySees) {
  ScopedEnvironment outer("TALLOW_TEST_VARIABLE", "outer");
  {
    ScopedEnvironment inner("TALLOW_TEST_VARIABLE", std::nullopt);
    EXPECT_EQ(std::getenv("TALLOW_TEST_VARIABLE"), nullptr);
  }
  EXPECT_STREQ(std::getenv("TALLOW_TEST_VARIABLE"), "outer");
}

TEST(Surroundings, SeeAHandleThatStaysOpen) {
  const std::size_t before = openHandles();
  const HANDLE event = CreateEventA(nullptr, FALSE, FALSE, nullptr);
  EXPECT_EQ(openHandles(), before + 1);
  CloseHandle(event);
  EXPECT_EQ(openHandles(), before);
}

TEST(Surroundings, SeeHeapMemoryThatStaysTaken) {
  const std::size_t before = heapBlocks();
  void* volatile block = std::malloc(100);
  EXPECT_EQ(heapBlocks(), before + 1);
  std::free(block);
  EXPECT_EQ(heapBlocks(), before);
}

TEST(Surroundings, SeeAPageThatEachCycleKeeps) {
  constexpr int kCycles = 100;
  constexpr std::size_t kPage = 4096;
  const std::size_t before = workingSet();
  auto* const kept = static_cast<volatile char*>(
      VirtualAlloc(nullptr, kCycles * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  for (std::size_t page = 0; page < kCycles; ++page) kept[page * kPage] = 1;
  EXPECT_GT(workingSet(), before + workingSetGrowthIn(kCycles));
  VirtualFree(const_cast<char*>(kept), 0, MEM_RELEASE);
}

}  // namespace
}  // namespace tallow::test
