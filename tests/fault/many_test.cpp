// Many jobs: one after another, side by side in one process, and in several processes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/child_process.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"
#include "system_libraries.hpp"

namespace tallow::test {
namespace {

constexpr std::size_t kBlock = 64;

struct Holdings {
  std::size_t handles = openHandles();
  std::size_t blocks = heapBlocks();
  std::size_t bytes = heapBytes();
};

std::string optionsIn(const std::string& folder) {
  return "Block_size=" + std::to_string(kBlock) + " Fallback_Directory='" + folder + "' ";
}

class Many : public testing::Test {
 protected:
  static void SetUpTestSuite() { keepSystemLibraries(); }

  ScratchDirectory scratch;
  ScopedEnvironment noLogDirectory{"NPLOGDIR", std::nullopt};
};

TEST_F(Many, JobsInOneProcessKeepNothing) {
  const int cycles = std::getenv("TALLOW_FULL") != nullptr ? 10'000 : 300;
  const Module module;
  // Most of the time would be spent in pauses.
  Hook<struct SleepTag, void(DWORD)> sleep(module.handle(), "Sleep",
                                           [](DWORD) { SwitchToThread(); });
  Host host(module);
  ASSERT_EQ(host.init(optionsIn(scratch.path())).code, pmrcSuccess);
  const std::string pipe = uniquePipeName();
  const std::string data = sampleData(kBlock);
  const auto cycle = [&] {
    PipeEnd writer = PipeEnd::serve(pipe);
    ASSERT_EQ(host.open(pipe).code, pmrcSuccess);
    writer.write(data);
    ASSERT_EQ(host.read().data, data);
    ASSERT_EQ(host.getPos().code, pmrcSuccess);
    writer.close();
    ASSERT_EQ(host.read().code, pmrcEOF);
    ASSERT_EQ(host.close().code, pmrcSuccess);
  };
  for (int i = 0; i < 10 && !HasFatalFailure(); ++i) {
    cycle();
    const Holdings looked;  // the first look takes memory too
  }
  const Holdings before;
  const std::size_t memory = workingSet();
  for (int i = 0; i < cycles && !HasFatalFailure(); ++i) cycle();
  EXPECT_LT(workingSet(), memory + workingSetGrowthIn(cycles));
  const Holdings after;
  EXPECT_EQ(after.handles, before.handles);
  EXPECT_EQ(after.blocks, before.blocks);
  EXPECT_EQ(after.bytes, before.bytes);
}

TEST_F(Many, InstancesSideBySideGetTheirOwnData) {
  constexpr std::size_t kInstances = 16;
  constexpr std::size_t kBlocks = 6;
  struct Stream {
    std::string name;
    std::string data;
    std::unique_ptr<PipeEnd> writer;
    void* instance = nullptr;
    std::string received;
  };
  const Module module;
  Host host(module);
  ASSERT_EQ(host.init(optionsIn(scratch.path())).code, pmrcSuccess);
  std::vector<Stream> streams(kInstances);
  for (std::size_t i = 0; i < kInstances; ++i) {
    Stream& stream = streams[i];
    stream.name = uniquePipeName();
    stream.data = sampleData(kBlock * kBlocks, i + 1);
    stream.writer = std::make_unique<PipeEnd>(PipeEnd::serve(stream.name));
    ASSERT_EQ(host.open(stream.name).code, pmrcSuccess);
    stream.instance = host.instance;
    stream.writer->write(stream.data);
    stream.writer->close();
  }
  for (std::size_t block = 0; block < kBlocks; ++block) {
    for (Stream& stream : streams) {
      host.instance = stream.instance;
      stream.received += host.read().data;
      if (block == 1) {
        EXPECT_EQ(host.getPos().position, 2u);
      }
    }
  }
  for (Stream& stream : streams) {
    host.instance = stream.instance;
    EXPECT_EQ(stream.received, stream.data);
    // Back to the checkpoint: each job has its own file.
    ASSERT_EQ(host.setPos(2).code, pmrcSuccess);
    for (std::size_t block = 1; block < kBlocks; ++block) {
      EXPECT_EQ(host.read().data, stream.data.substr(block * kBlock, kBlock));
    }
    EXPECT_EQ(host.read().code, pmrcEOF);
    EXPECT_EQ(host.close().code, pmrcSuccess);
  }
}

// One of several processes: a job that dies after its checkpoint and is started again.
int diesAndRestarts(const std::vector<std::string>& arguments) {
  const std::string& folder = arguments.at(0);
  const std::string pipe = R"(\\.\pipe\tallow-shared-)" + arguments.at(1);
  constexpr std::size_t kBlocks = 12;
  const std::string data = sampleData(kBlock * kBlocks, std::stoull(arguments.at(1)) + 100);
  // The search opens only files in the working directory.
  const ScopedCurrentDirectory current(folder);
  for (const bool restarted : {false, true}) {
    const Module module;
    Host host(module);
    if (host.init(optionsIn(folder)).code != pmrcSuccess) return 1;
    PipeEnd writer = PipeEnd::serve(pipe);
    if (host.open(pipe).code != pmrcSuccess) return 2;
    writer.write(data);
    writer.close();
    if (!restarted) {
      for (std::size_t block = 0; block < 5; ++block) {
        if (host.read().data != data.substr(block * kBlock, kBlock)) return 3;
      }
      if (host.getPos().position != 5) return 4;
      host.read();
      continue;  // unloaded without Close
    }
    if (host.setPos(5).code != pmrcSuccess) return 5;
    for (std::size_t block = 4; block < kBlocks; ++block) {
      if (host.read().data != data.substr(block * kBlock, kBlock)) return 6;
    }
    if (host.read().code != pmrcEOF) return 7;
    if (host.close().code != pmrcSuccess) return 8;
  }
  return 0;
}
const ChildWork diesAndRestartsWork("diesAndRestarts", diesAndRestarts);

TEST_F(Many, ProcessesShareAFallbackDirectory) {
  constexpr int kProcesses = 8;
  std::vector<unsigned> results(kProcesses, 77);
  {
    std::vector<std::unique_ptr<WriterThread>> parents;
    parents.reserve(kProcesses);
    for (int i = 0; i < kProcesses; ++i) {
      parents.push_back(std::make_unique<WriterThread>([&results, i, this] {
        results[static_cast<std::size_t>(i)] =
            runChild("diesAndRestarts", {scratch.path(), std::to_string(i)});
      }));
    }
  }
  EXPECT_EQ(results, std::vector<unsigned>(kProcesses, 0));
  WIN32_FIND_DATAA found = {};
  const HANDLE left = FindFirstFileA(scratch.file("*.fbf").c_str(), &found);
  EXPECT_EQ(left, INVALID_HANDLE_VALUE) << found.cFileName << " is left";
  if (left != INVALID_HANDLE_VALUE) FindClose(left);
}

}  // namespace
}  // namespace tallow::test
