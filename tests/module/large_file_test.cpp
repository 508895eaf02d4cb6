// What needs gigabytes or tens of thousands of files; for the full run.
#include <array>

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
  ASSERT_EQ(checkpoint(), 133u);  // its record begins behind 2 GiB
  expectBlocks(134, 137);
  ASSERT_EQ(host().setPos(133).code, 0u);
  expectBlocks(133, kBlocks);
  EXPECT_EQ(host().read().code, pmrcEOF);
}

class NumberedNames : public FallbackTest {
 protected:
  static constexpr unsigned kNames = 0x10000;

  std::string name(unsigned number) const {
    unsigned sum = 0;
    for (const char character : pipeName) sum += static_cast<unsigned char>(character);
    std::array<char, 16> digits{};
    std::snprintf(digits.data(), digits.size(), "%04x%04x", sum & 0xffff, number);
    return files.file(pipeName.substr(pipeName.rfind('\\') + 1) + digits.data() + ".fbf");
  }
};

TEST_F(NumberedNames, AllTakenLeaveTheJobWithoutAFile) {
  for (unsigned number = 0; number < kNames; ++number) putFile(name(number), "");
  openJob({}, "");
  EXPECT_EQ(count(log.newEntries(), message(2, 79)), 1);
  deliver(3);
  host().close();

  // One that is free is enough, though the last is the one that is used.
  DeleteFileA(name(0x1234).c_str());
  send(data);
  ASSERT_EQ(host().open(pipeName).code, 0u);
  EXPECT_EQ(count(log.newEntries(), message(2, 79)), 0);
  checkpoint();
  EXPECT_FALSE(exists(name(0x1234)));
  EXPECT_EQ(contentOf(name(kNames - 1)).size(), kDataStart);
}

}  // namespace
}  // namespace tallow::test
