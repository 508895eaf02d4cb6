// How the initialisation string is cut into keywords and values.
#include "config/option_tokens.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tallow::config {
namespace {

struct Token {
  std::string keyword;
  std::string value;
  bool operator==(const Token&) const = default;
};
void PrintTo(const Token& token, std::ostream* out) {
  *out << '[' << token.keyword << "]=[" << token.value << ']';
}

std::vector<Token> tokensOf(std::string_view text) {
  std::vector<Token> result;
  for (OptionTokens tokens(text); tokens.next();) {
    result.push_back({std::string(tokens.keyword()), std::string(tokens.value())});
  }
  return result;
}

struct Case {
  std::string text;
  std::vector<Token> tokens;
};
void PrintTo(const Case& value, std::ostream* out) {
  *out << '"' << value.text << '"';
}

class Tokens : public testing::TestWithParam<Case> {};

TEST_P(Tokens, AreFoundFromLeftToRight) {
  EXPECT_EQ(tokensOf(GetParam().text), GetParam().tokens);
}

INSTANTIATE_TEST_SUITE_P(
    OptionTokens, Tokens,
    testing::Values(
        Case{"", {}}, Case{" \t\n", {}}, Case{"=", {}}, Case{" = a=b", {}},
        Case{"a=b", {{"a", "b"}}}, Case{"a b", {{"a", "b"}}}, Case{"a = b", {{"a", "b"}}},
        Case{"a==b", {{"a", "b"}}}, Case{"a \t\n==\n b", {{"a", "b"}}},
        Case{"a=b=c", {{"a", "b=c"}}}, Case{"a=b c=d", {{"a", "b"}, {"c", "d"}}},
        Case{"a=b\n\n\tc=d \n", {{"a", "b"}, {"c", "d"}}}, Case{"a=b = c=d", {{"a", "b"}}},
        Case{"a", {{"a", ""}}}, Case{"a=", {{"a", ""}}}, Case{"a= ", {{"a", ""}}},
        Case{"a='b c'", {{"a", "b c"}}}, Case{"a=\"b c\"", {{"a", "b c"}}},
        Case{"a='b=\"c\"'", {{"a", "b=\"c\""}}}, Case{"a=\"it's\"", {{"a", "it's"}}},
        Case{"a=''", {{"a", ""}}}, Case{"a=\"\"", {{"a", ""}}},
        Case{"a='' b=c", {{"a", ""}, {"b", "c"}}}, Case{"a=''b=c", {{"a", ""}, {"b", "c"}}},
        Case{"a='b'c=d", {{"a", "b"}, {"c", "d"}}}, Case{"a='b' c", {{"a", "b"}, {"c", ""}}},
        Case{"a=b'c d'", {{"a", "b'c"}, {"d'", ""}}}, Case{"a'=b", {{"a'", "b"}}},
        Case{"'a'=b", {{"'a'", "b"}}}, Case{"a=b\r\nc=d", {{"a", "b\r"}, {"c", "d"}}},
        Case{"\ra=b", {{"\ra", "b"}}}, Case{"a\r=b", {{"a\r", "b"}}},
        Case{"a='\n\t '", {{"a", "\n\t "}}}, Case{"a='''", {{"a", ""}, {"'", ""}}},
        Case{"nf nfb=no", {{"nf", "nfb=no"}}}, Case{"nf '' b=1", {{"nf", ""}, {"b", "1"}}}));

class OpenQuote : public testing::TestWithParam<const char*> {};

TEST_P(OpenQuote, IsTheLibrarysOutOfRangeError) {
  try {
    tokensOf(GetParam());
    FAIL() << "no error";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

INSTANTIATE_TEST_SUITE_P(OptionTokens, OpenQuote,
                         testing::Values("a='", "a=\"", "a='b", "a=\"b", "a='b\"", "a=\"b'",
                                         "a=b c='d", "a='b c=d", "a ' "));

}  // namespace
}  // namespace tallow::config
