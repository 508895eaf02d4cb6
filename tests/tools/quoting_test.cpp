// A printed command can be copied into cmd and PowerShell.
#include "common/quoting.hpp"

#include <gtest/gtest.h>

#include <string>

namespace tallow::tools {
namespace {

TEST(QuotedArgument, LeavesPlainWordsBare) {
  for (const char* word : {"--pipe", "\\\\.\\pipe\\orders", "C:/data/orders_1.csv", "x+y",
                           "\xC3\xA9t\xC3\xA9", "rows\\"}) {
    EXPECT_EQ(quotedArgument(word), word);
  }
}

TEST(QuotedArgument, QuotesWhatAShellWouldChange) {
  for (const char c : std::string(" \t&|<>^;,()'`$!#@{}[]=~*?%\n")) {
    const std::string argument = std::string("a") + c;
    EXPECT_EQ(quotedArgument(argument), "\"" + argument + "\"");
  }
  EXPECT_EQ(quotedArgument(""), "\"\"");
}

TEST(QuotedArgument, DoublesBackslashesBeforeAQuote) {
  EXPECT_EQ(quotedArgument("a b\\"), "\"a b\\\\\"");
  EXPECT_EQ(quotedArgument("a \\b"), "\"a \\b\"");
  EXPECT_EQ(quotedArgument("a\\\"b"), "^\"a\\\\\\^\"b^\"");
}

TEST(QuotedArgument, KeepsCmdFromEndingTheQuotedPart) {
  EXPECT_EQ(quotedArgument("my\"table&x"), "^\"my\\^\"table^&x^\"");
}

TEST(QuotedArgument, KeepsCmdFromPuttingVariablesIn) {
  EXPECT_EQ(quotedArgument("50%"), "\"50%\"");
  EXPECT_EQ(quotedArgument("%TEMP%\\x"), "^\"^%TEMP^%\\x^\"");
}

}  // namespace
}  // namespace tallow::tools
