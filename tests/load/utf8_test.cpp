// The checks and copies of text that the loader does for every byte.
#include "common/utf8.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "load/rows/bytes.hpp"

namespace tallow::load {
namespace {

using tools::isAscii;
using tools::isUtf8;
using tools::toUtf16;

std::u16string wide(std::string_view text) {
  std::u16string units(text.size(), u'\0');
  units.resize(toUtf16(text, units.data()));
  return units;
}

TEST(Utf8, AcceptsWellFormedText) {
  for (const char* text : {"", "plain", "\xC3\xA9", "\xE6\xBC\xA2", "\xF0\x9F\x98\x80",
                           "\xF4\x8F\xBF\xBF", "\xED\x9F\xBF", "12345678\xC2\x80"}) {
    EXPECT_TRUE(isUtf8(text)) << text;
  }
}

TEST(Utf8, RefusesWhatIsIllFormed) {
  for (const char* text :
       {"\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF",
        "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xE6\xBC", "\xFF", "12345678\xE6\xBC"}) {
    EXPECT_FALSE(isUtf8(text)) << text;
  }
}

TEST(Utf8, FindsTheFaultAtEveryPlace) {
  for (std::size_t at = 0; at < 40; ++at) {
    std::string text(40, 'x');
    text[at] = '\xFF';
    EXPECT_FALSE(isUtf8(text)) << at;
    EXPECT_FALSE(isAscii(text)) << at;
  }
}

TEST(Ascii, IsSevenBits) {
  EXPECT_TRUE(isAscii("0123456789\x7F"));
  EXPECT_FALSE(isAscii("0123456789\xC3\xA9"));
}

TEST(Utf16, HasEveryCharacter) {
  EXPECT_EQ(wide("a\xC3\xA9\xE6\xBC\xA2\xF0\x9F\x98\x80"), u"a\u00e9\u6f22\U0001F600");
}

TEST(ShortCopy, CopiesEveryLengthAndNoMore) {
  const std::string from = "abcdefghijklmnopqrstuvwxyz";
  for (std::size_t length = 0; length <= from.size(); ++length) {
    std::string to(from.size(), '.');
    copyShort(to.data(), from.data(), length);
    EXPECT_EQ(to, from.substr(0, length) + std::string(from.size() - length, '.'));
  }
}

TEST(LineScan, FindsTheBreakAtEveryPlace) {
  for (std::size_t at = 0; at < 50; ++at) {
    for (const char lineBreak : {'\n', '\r'}) {
      std::string text(60, 'x');
      text[at] = lineBreak;
      text[at + 1] = '\n';
      ByteKinds kinds;
      EXPECT_EQ(scanLine(text, kinds), at);
      EXPECT_FALSE(kinds.nonAscii || kinds.nul);
    }
  }
}

TEST(LineScan, SeesOnlyWhatComesBeforeTheBreak) {
  for (std::size_t at = 0; at < 40; ++at) {
    std::string text(60, 'x');
    text[20] = '\n';
    text[at] = at == 20 ? '\n' : '\xFF';
    ByteKinds kinds;
    EXPECT_EQ(scanLine(text, kinds), 20U);
    EXPECT_EQ(kinds.nonAscii, at < 20) << at;
    text[at] = at == 20 ? '\n' : '\0';
    kinds = {};
    scanLine(text, kinds);
    EXPECT_EQ(kinds.nul, at < 20) << at;
  }
}

}  // namespace
}  // namespace tallow::load
