// Tests that need gigabytes, for the full run.
#include "support/fallback_test.hpp"

namespace tallow::test {
namespace {

constexpr std::size_t kLargeBlock = 16777216;
constexpr std::uint64_t kBlocks = 140;  // 2.2 GiB

class LargeFile : public FallbackTest {
 protected:
  // Delivers these blocks, each of which begins and ends with its number. The writer sends a block
  // when it is first asked for.
  void expectBlocks(std::uint64_t first, std::uint64_t last) {
    for (std::uint64_t n = first; n <= last; ++n) {
      if (n > sent_) script().data(numbered(sent_ = n));
      const ReadAnswer answer = host.read();
      ASSERT_EQ(answer.code, 0u) << n;
      ASSERT_EQ(answer.data.size(), kLargeBlock);
      ASSERT_EQ(numberOf64(answer.data), n);
      ASSERT_EQ(numberOf64(std::string_view(answer.data).substr(kLargeBlock - 8)), n);
    }
  }

 private:
  static std::string numbered(std::uint64_t number) {
    std::string block(kLargeBlock, static_cast<char>(number));
    block.replace(0, 8, bytesOf64(number));
    block.replace(kLargeBlock - 8, 8, bytesOf64(number));
    return block;
  }

  std::uint64_t sent_ = 0;
};

TEST_F(LargeFile, IsReplayedBeyondTwoGigabytes) {
  initialise("Block_size=16777216 Signature_check=0");
  ASSERT_EQ(host.open(pipeName).code, 0u);
  expectBlocks(1, 1);
  ASSERT_EQ(checkpoint(), 1u);
  expectBlocks(2, 135);
  ASSERT_EQ(host.setPos(1).code, 0u);
  expectBlocks(1, 133);
  ASSERT_EQ(checkpoint(), 133u);  // its record begins after 2 GiB
  expectBlocks(134, 137);
  ASSERT_EQ(host.setPos(133).code, 0u);
  expectBlocks(133, kBlocks);
  EXPECT_EQ(host.read().code, pmrcEOF);
}

}  // namespace
}  // namespace tallow::test
