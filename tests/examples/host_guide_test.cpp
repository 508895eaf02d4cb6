// What docs/host-guide.md promises to the author of a host.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/host.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

constexpr std::size_t kBlock = 1000;

class HostGuide : public testing::Test {
 protected:
  std::string options() const {
    return "Block_size=1000 Fallback_Directory='" + folder_.path() + "' Fallback_file=job.fbf";
  }
  bool fileExists() const { return std::filesystem::exists(folder_.file("job.fbf")); }

  // A run that takes a checkpoint at block 1 and reaches the end of the data after block 2.
  void endedRun(Host& host) {
    ASSERT_EQ(host.init(options()).code, pmrcSuccess);
    ASSERT_EQ(host.open(pipe_).code, pmrcSuccess);
    PipeEnd writer = PipeEnd::connect(pipe_);
    writer.write(data_.substr(0, 2 * kBlock));
    writer.close();
    ASSERT_EQ(host.read().code, pmrcSuccess);
    ASSERT_EQ(host.getPos().position, 1u);
    ASSERT_EQ(host.read().code, pmrcSuccess);
    ASSERT_EQ(host.read().code, pmrcEOF);
  }

  // The start of a second run; the writer sends all data again.
  void openAgain(Host& host) {
    ASSERT_EQ(host.init(options()).code, pmrcSuccess);
    ASSERT_EQ(host.open(pipe_).code, pmrcSuccess);
    PipeEnd writer = PipeEnd::connect(pipe_);
    writer.write(data_.substr(0, 2 * kBlock));
    writer.close();
  }

  void endedRunOfADeadWriter() {
    const Module module;
    Host host(module);
    endedRun(host);
    ASSERT_EQ(host.attribute("PRESERVE_RESTART_INFO", "YES").code, pmrcSuccess);
    ASSERT_EQ(host.close().code, pmrcSuccess);
    ASSERT_TRUE(fileExists());
  }

  const std::string data_ = sampleData(3 * kBlock);
  const std::string pipe_ = uniquePipeName();
  ScratchDirectory folder_;
};

TEST_F(HostGuide, CloseBehindTheEndOfTheDataDeletesTheFallbackFile) {
  const Module module;
  Host host(module);
  endedRun(host);
  ASSERT_TRUE(fileExists());
  ASSERT_EQ(host.close().code, pmrcSuccess);
  EXPECT_FALSE(fileExists());
}

TEST_F(HostGuide, UnloadBehindTheEndOfTheDataDoesNot) {
  {
    const Module module;
    Host host(module);
    endedRun(host);
  }
  EXPECT_TRUE(fileExists());
}

TEST_F(HostGuide, ARunWhoseWriterDiedGoesOnIfTheHostKeepsTheFile) {
  endedRunOfADeadWriter();
  const Module module;
  Host host(module);
  openAgain(host);
  ASSERT_EQ(host.setPos(1).code, pmrcSuccess);
  EXPECT_EQ(host.read().data, data_.substr(0, kBlock));
  EXPECT_EQ(host.read().data, data_.substr(kBlock, kBlock));
}

TEST_F(HostGuide, APositionThatWasRefusedMayBeFollowedByAnother) {
  endedRunOfADeadWriter();
  const Module module;
  Host host(module);
  openAgain(host);
  ASSERT_EQ(host.setPos(7).code, pmrcBadPosition);
  ASSERT_EQ(host.setPos(1, 4).code, pmrcFailed);
  EXPECT_EQ(host.setPos(1).code, pmrcSuccess);
}

TEST_F(HostGuide, ARestartThatUsedUpTheDataAnswersDeliveryUntilClose) {
  endedRunOfADeadWriter();
  const Module module;
  Host host(module);
  ASSERT_EQ(host.init(options()).code, pmrcSuccess);
  ASSERT_EQ(host.open(pipe_).code, pmrcSuccess);
  {
    PipeEnd writer = PipeEnd::connect(pipe_);
    writer.write(std::string(2 * kBlock, 'x'));
    writer.close();
  }
  ASSERT_EQ(host.setPos(1).code, pmrcDelivery);
  EXPECT_EQ(host.read().code, pmrcDelivery);
  EXPECT_EQ(host.getPos().code, pmrcDelivery);
  EXPECT_EQ(host.setPos(1).code, pmrcDelivery);
  ASSERT_EQ(host.close().code, pmrcSuccess);
  EXPECT_TRUE(fileExists());
}

}  // namespace
}  // namespace tallow::test
