// Names of pipes, and the pauses while a pipe is empty.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pipe/pause.hpp"
#include "pipe/pipe_name.hpp"

namespace tallow::pipe {
namespace {

TEST(PipeName, BeginsWithThePrefixByteForByte) {
  EXPECT_TRUE(isPipeName(R"(\\.\pipe\a)"));
  EXPECT_TRUE(isPipeName(R"(\\.\pipe\)"));
  EXPECT_TRUE(isPipeName(R"(\\.\pipe\a\b)"));
  for (const char* name : {"", R"(\\.\pipe)", R"(\\.\PIPE\a)", R"(\\.\Pipe\a)", R"( \\.\pipe\a)",
                           R"(//./pipe/a)", R"(\\?\pipe\a)", R"(\.\pipe\a)", "a"}) {
    EXPECT_FALSE(isPipeName(name)) << name;
  }
}

TEST(AsciiUtf16, HasTwoBytesPerCharacterAndNoHighByte) {
  using namespace std::string_view_literals;
  EXPECT_TRUE(isAsciiUtf16("a\0b\0"sv, 2));
  EXPECT_TRUE(isAsciiUtf16(""sv, 0));
  EXPECT_FALSE(isAsciiUtf16("\xf6\0"sv, 2)) << "one character of two bytes";
  EXPECT_FALSE(isAsciiUtf16("a\0\0\1"sv, 2));
  EXPECT_FALSE(isAsciiUtf16("a\1"sv, 1));
}

std::vector<std::uint64_t> pauses(std::uint64_t longest, int count) {
  std::vector<std::uint64_t> result;
  for (std::uint64_t pause = kFirstPause; count-- > 0; pause = nextPause(pause, longest)) {
    result.push_back(pause);
  }
  return result;
}

using Pauses = std::vector<std::uint64_t>;

TEST(Pause, DoublesUpToTheLongest) {
  EXPECT_EQ(pauses(10, 7), (Pauses{1, 2, 4, 8, 10, 10, 10}));
  EXPECT_EQ(pauses(1, 3), (Pauses{1, 1, 1}));
  EXPECT_EQ(pauses(2, 4), (Pauses{1, 2, 2, 2}));
  EXPECT_EQ(pauses(3, 4), (Pauses{1, 2, 3, 3}));
  EXPECT_EQ(pauses(16, 6), (Pauses{1, 2, 4, 8, 16, 16}));
  EXPECT_EQ(pauses(600, 12), (Pauses{1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 600, 600}));
}

TEST(Pause, OfNothingFollowsTheFirst) {
  EXPECT_EQ(pauses(0, 4), (Pauses{1, 0, 0, 0}));
}

}  // namespace
}  // namespace tallow::pipe
