// Data that is no CSV in UTF-8 is known by its first bytes.
#include "load/rows/data_format.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

using namespace std::string_view_literals;

TEST(DataFormat, IsKnownByItsFirstBytes) {
  EXPECT_EQ(foreignFormat("\x1F\x8B\x08"sv), "gzip");
  EXPECT_EQ(foreignFormat("\x28\xB5\x2F\xFD"sv), "zstd");
  EXPECT_EQ(foreignFormat("\xFD\x37\x7A\x58\x5A\x00\x00"sv), "xz");
  EXPECT_EQ(foreignFormat("PK\x03\x04"sv), "a zip file");
  EXPECT_EQ(foreignFormat("\xFF\xFE"sv), "UTF-16 text");
  EXPECT_EQ(foreignFormat("\xFE\xFF"sv), "UTF-16 text");
}

TEST(DataFormat, FindsUtf16WithoutAMark) {
  EXPECT_EQ(foreignFormat("1\0,\0a\0"sv), "UTF-16 text");
  EXPECT_EQ(foreignFormat("\0001\0,\0a"sv), "UTF-16 text");
}

TEST(DataFormat, LeavesTextAlone) {
  for (const std::string_view text :
       {""sv, "P"sv, "PK,PL\n"sv, "\xEF\xBB\xBFid\n"sv, "id\n1\n"sv, "1\0"sv, "a\0b,c"sv}) {
    EXPECT_EQ(foreignFormat(text), "") << text;
  }
}

}  // namespace
}  // namespace tallow::load
