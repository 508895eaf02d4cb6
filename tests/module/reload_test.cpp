// A host may load and unload the module over and over: nothing is left behind.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstddef>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

#include "support/host.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

// How many more slots of this kind the process could take.
template <typename Allocate, typename Free>
std::size_t freeSlots(Allocate allocate, Free release) {
  std::vector<DWORD> taken;
  for (DWORD slot = allocate(); slot != TLS_OUT_OF_INDEXES; slot = allocate()) {
    taken.push_back(slot);
  }
  for (const DWORD slot : taken) release(slot);
  return taken.size();
}

struct Holdings {
  std::size_t handles = openHandles();
  std::size_t blocks = heapBlocks();
  std::size_t bytes = heapBytes();
  std::size_t freeThreadSlots = freeSlots(TlsAlloc, TlsFree);
  std::size_t freeFiberSlots =
      freeSlots([] { return FlsAlloc(nullptr); }, [](DWORD slot) { FlsFree(slot); });

  bool operator==(const Holdings&) const = default;
  friend std::ostream& operator<<(std::ostream& stream, const Holdings& holdings) {
    return stream << holdings.handles << " handles, " << holdings.blocks << " heap blocks of "
                  << holdings.bytes << " bytes, " << holdings.freeThreadSlots << " thread and "
                  << holdings.freeFiberSlots << " fiber slots free";
  }
};

class Reload : public testing::Test {
 protected:
  // The Windows libraries that the module needs stay loaded, so that only the module itself comes
  // and goes.
  Reload() {
    for (const char* library : {"advapi32", "comdlg32", "user32", "version", "winmm"}) {
      LoadLibraryA(library);
    }
  }

  // Expects equal holdings before and after `cycles` runs of `cycle`. A few runs come first, for
  // what this process takes once and keeps. What the system takes once but later spoils one series
  // of runs; a leak of ours spoils all.
  template <typename Cycle>
  void expectNothingKept(Cycle cycle) {
    const int cycles = std::getenv("TALLOW_FULL") != nullptr ? 2000 : 100;
    for (int count = 0; count < 5; ++count) {
      cycle();
      const Holdings looked;  // the first look takes memory too
    }
    const std::size_t memory = workingSet();
    Holdings before;
    Holdings after;
    int series = 0;
    do {
      before = Holdings();
      for (int count = 0; count < cycles; ++count) cycle();
      after = Holdings();
    } while (++series < kMostSeries && after != before);
    EXPECT_LT(workingSet(), memory + workingSetGrowthIn(series * cycles));
    EXPECT_EQ(after, before);
  }

 private:
  static constexpr int kMostSeries = 3;
};

TEST_F(Reload, KeepsNothing) {
  expectNothingKept([] { const Module module; });
}

TEST_F(Reload, KeepsNothingOfAJob) {
  const std::string pipe = uniquePipeName();
  expectNothingKept([&] {
    const Module module;
    Host host(module);
    ASSERT_EQ(host.init("Log_level 0").code, 0U);
    PipeEnd writer = PipeEnd::serve(pipe);
    ASSERT_EQ(host.open(pipe).code, 0U);
    ASSERT_EQ(host.close().code, 0U);
  });
}

TEST_F(Reload, KeepsNothingOfAConvertedPipeName) {
  const std::string pipe = uniquePipeName();
  expectNothingKept([&] {
    const Module module;
    Host host(module);
    ASSERT_EQ(host.init("Log_level 0").code, 0U);
    ASSERT_EQ(host.attribute("CHARSET_NAME", "UTF8").code, 0U);
    PipeEnd writer = PipeEnd::serve(pipe);
    ASSERT_EQ(host.open(pipe).code, 0U);
    ASSERT_EQ(host.close().code, 0U);
  });
}

TEST_F(Reload, KeepsNothingOfARequestThatThrew) {
  expectNothingKept([] {
    const Module module;
    Host host(module);
    ASSERT_EQ(host.init("").code, 0U);
    ASSERT_NE(host.open(R"(\\.\pipe\)", 2).code, 0U);
  });
}

TEST_F(Reload, KeepsNothingOfRecordsThatTheHostLeft) {
  expectNothingKept([] {
    const Module module;
    Host host(module);
    ASSERT_EQ(host.init("").code, 0U);
  });
}

}  // namespace
}  // namespace tallow::test
