// Control characters and bytes that are not UTF-8 are spelled out before they are printed.
#include "common/printable.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tallow::tools {
namespace {

TEST(Printable, LeavesTextAsItIs) {
  for (const char* text : {"", "plain ~", "C:\\new\\table", "\xC2\xA0\xC3\xA9", "\xE6\xBC\xA2",
                           "\xF0\x9F\x98\x80", "\xE2\x80\x90", "\xE2\x80\xAF"}) {
    EXPECT_EQ(printable(text), text);
  }
}

TEST(Printable, SpellsOutEveryControlOfAscii) {
  for (int code = 0; code < 0x20; ++code) {
    const std::string spelled = printable(std::string(1, static_cast<char>(code)));
    ASSERT_EQ(spelled.size(), 4U) << code;
    EXPECT_EQ(spelled.substr(0, 2), "\\x") << code;
    EXPECT_EQ(std::stoi(spelled.substr(2), nullptr, 16), code);
  }
  EXPECT_EQ(printable("\x1B[2Ja\x7F"), "\\x1B[2Ja\\x7F");
}

TEST(Printable, SpellsOutEveryControlAboveAscii) {
  for (int code = 0x80; code < 0xA0; ++code) {
    const std::string spelled = printable(std::string("\xC2") + static_cast<char>(code));
    ASSERT_EQ(spelled.size(), 6U) << code;
    EXPECT_EQ(spelled.substr(0, 2), "\\u") << code;
    EXPECT_EQ(std::stoi(spelled.substr(2), nullptr, 16), code);
  }
}

TEST(Printable, SpellsOutWhatTurnsTheTextAround) {
  EXPECT_EQ(printable("a\xE2\x80\xAE"
                      "b\xE2\x80\xA8"),
            "a\\u202Eb\\u2028");
  EXPECT_EQ(printable("\xD8\x9C\xE2\x81\xA6\xE2\x81\xA9\xE2\x80\x8F"),
            "\\u061C\\u2066\\u2069\\u200F");
}

TEST(Printable, SpellsOutBytesThatAreNotUtf8) {
  EXPECT_EQ(printable("a\x9B"
                      "b\xC3"),
            "a\\x9Bb\\xC3");
  EXPECT_EQ(printable("\xED\xA0\x80"), "\\xED\\xA0\\x80");
  EXPECT_EQ(printable("\xC0\x9B"), "\\xC0\\x9B") << "an overlong escape character";
}

}  // namespace
}  // namespace tallow::tools
