// Tests that need gigabytes, for the full run.
#include "module/fallback_fixture.hpp"

namespace tallow::test {
namespace {

class LargeFile : public FallbackTest {};

constexpr std::size_t kLargeBlock = 16777216;
constexpr std::uint64_t kBlocks = 140;  // 2.2 GiB

// Blocks that begin and end with their number.
class NumberedBlocks {
 public:
  explicit NumberedBlocks(HMODULE module)
      : read_(module, "ReadFile",
              [this](HANDLE, void* buffer, DWORD size, DWORD* count, OVERLAPPED*) -> BOOL {
                if (next_ > kBlocks) {
                  SetLastError(ERROR_BROKEN_PIPE);
                  return FALSE;
                }
                auto* bytes = static_cast<char*>(buffer);
                std::fill_n(bytes, size, static_cast<char>(next_));
                std::copy_n(bytesOf64(next_).data(), 8, bytes);
                std::copy_n(bytesOf64(next_).data(), 8, bytes + size - 8);
                ++next_;
                *count = size;
                return TRUE;
              }) {}

 private:
  std::uint64_t next_ = 1;
  Hook<struct NumberedTag, BOOL(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*)> read_;
};

TEST_F(LargeFile, IsReplayedBeyondTwoGigabytes) {
  initialise("Block_size=16777216 Signature_check=0");
  const NumberedBlocks blocks(module());
  ASSERT_EQ(host().open(pipeName).code, 0u);
  const auto expectBlocks = [this](std::uint64_t first, std::uint64_t last) {
    for (std::uint64_t n = first; n <= last; ++n) {
      const ReadAnswer answer = host().read();
      ASSERT_EQ(answer.code, 0u) << n;
      ASSERT_EQ(answer.data.size(), kLargeBlock);
      ASSERT_EQ(numberOf64(answer.data), n);
      ASSERT_EQ(numberOf64(std::string_view(answer.data).substr(kLargeBlock - 8)), n);
    }
  };
  expectBlocks(1, 1);
  ASSERT_EQ(checkpoint(), 1u);
  expectBlocks(2, 135);
  ASSERT_EQ(host().setPos(1).code, 0u);
  expectBlocks(1, 133);
  ASSERT_EQ(checkpoint(), 133u);  // its record begins after 2 GiB
  expectBlocks(134, 137);
  ASSERT_EQ(host().setPos(133).code, 0u);
  expectBlocks(133, kBlocks);
  EXPECT_EQ(host().read().code, pmrcEOF);
}

}  // namespace
}  // namespace tallow::test
