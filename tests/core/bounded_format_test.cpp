// Formatting into a buffer that grows, and into one of a fixed size.
#include "diag/bounded_format.hpp"

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>
#include <vector>

namespace tallow::diag {
namespace {

std::string growing(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = formatGrowing(format, arguments);
  va_end(arguments);
  return text;
}

// The text kept in `size` bytes of a buffer that is exactly that large.
std::string cut(std::size_t size, const char* format, ...) {
  std::vector<char> buffer(size, '#');
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t length = formatCut(buffer.data(), size, format, arguments);
  va_end(arguments);
  EXPECT_LT(length, size);
  EXPECT_EQ(buffer[length], '\0');
  return buffer.data();
}

class GrowingLength : public testing::TestWithParam<std::size_t> {};

TEST_P(GrowingLength, IsKeptWhole) {
  const std::string text(GetParam(), 'x');
  EXPECT_EQ(growing("%s", text.c_str()), text);
}

INSTANTIATE_TEST_SUITE_P(FormatGrowing, GrowingLength,
                         testing::Values(0, 1, 254, 255, 256, 510, 511, 512, 2559, 2560, 2561, 4607,
                                         4608, 4609, 6656, 6657, 8703, 8704));

TEST(FormatGrowing, CutsWhatIsLongerThanItsLastBuffer) {
  const std::string text(20000, 'x');
  EXPECT_EQ(growing("%s", text.c_str()), text.substr(0, kLongestFormatted));
}

TEST(FormatGrowing, UsesItsArgumentsAnewInEachBuffer) {
  const std::string text(600, 'x');
  EXPECT_EQ(growing("%d %s %d", 1, text.c_str(), 2), "1 " + text + " 2");
}

TEST(FormatGrowing, LeavesPercentSignsOfArgumentsAlone) {
  EXPECT_EQ(growing("%s", "%n%s%d"), "%n%s%d");
}

class CutSize : public testing::TestWithParam<std::size_t> {};

TEST_P(CutSize, KeepsWhatFits) {
  for (std::size_t length = 0; length < GetParam() + 3; ++length) {
    const std::string text(length, 'x');
    EXPECT_EQ(cut(GetParam(), "%s", text.c_str()), text.substr(0, GetParam() - 1));
  }
}

INSTANTIATE_TEST_SUITE_P(FormatCut, CutSize, testing::Values(1, 2, 3, 10, 1024));

}  // namespace
}  // namespace tallow::diag
