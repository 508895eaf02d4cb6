// How one option is judged by its keyword and its value.
#include "config/option_setting.hpp"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace tallow::config {
namespace {

struct Number {
  const char* text;
  std::uint32_t value;
  bool whole;
};
void PrintTo(const Number& number, std::ostream* out) {
  *out << '"' << number.text << '"';
}

class Numbers : public testing::TestWithParam<Number> {};

TEST_P(Numbers, AreReadAsTheRunTimeLibraryReadsThem) {
  const ParsedNumber number = parseNumber(GetParam().text);
  EXPECT_EQ(number.value, GetParam().value);
  EXPECT_EQ(number.whole, GetParam().whole);
}

INSTANTIATE_TEST_SUITE_P(
    ParseNumber, Numbers,
    testing::Values(Number{"0", 0, true}, Number{"600", 600, true}, Number{"007", 7, true},
                    Number{"+5", 5, true}, Number{" \t5", 5, true}, Number{"5 ", 5, false},
                    Number{"5x", 5, false}, Number{"x5", 0, false}, Number{"0x10", 0, false},
                    Number{"-1", 4294967295u, true}, Number{"-5", 4294967291u, true},
                    Number{"-4294967295", 1, true}, Number{"-4294967296", 4294967295u, true},
                    Number{"-0", 0, true}, Number{"4294967295", 4294967295u, true},
                    Number{"4294967296", 4294967295u, true},
                    Number{"18446744073709551616", 4294967295u, true},
                    Number{"-99999999999999999999", 4294967295u, true},
                    Number{"4294967296x", 4294967295u, false}, Number{"--5", 0, false},
                    Number{"1e3", 1, false}, Number{"1.5", 1, false}));

constexpr OptionSetting kEmpty{OptionVerdict::kEmptyValue, {}, 0, false};
constexpr OptionSetting kUnknown{OptionVerdict::kUnknownKeyword, {}, 0, false};

constexpr OptionSetting good(OptionId id, std::uint32_t number) {
  return {OptionVerdict::kGood, id, number, true};
}
constexpr OptionSetting bad(OptionId id) {
  return {OptionVerdict::kBadValue, id, 0, false};
}

struct Case {
  std::string keyword;
  std::string value;
  OptionSetting expected;
};
void PrintTo(const Case& value, std::ostream* out) {
  *out << value.keyword << '=' << value.value;
}

class Setting : public testing::TestWithParam<Case> {};

TEST_P(Setting, IsJudgedByKeywordAndValue) {
  const OptionSetting& expected = GetParam().expected;
  const OptionSetting setting = readOption(GetParam().keyword, GetParam().value);
  ASSERT_EQ(setting.verdict, expected.verdict);
  if (setting.verdict == OptionVerdict::kGood || setting.verdict == OptionVerdict::kBadValue) {
    EXPECT_EQ(setting.id, expected.id);
  }
  if (setting.verdict == OptionVerdict::kGood) {
    EXPECT_EQ(setting.stores, expected.stores);
    EXPECT_TRUE(!setting.stores || setting.number == expected.number) << setting.number;
  }
}

constexpr OptionSetting kKeepsFullBlocks{OptionVerdict::kGood, OptionId::kNeedFullBlock, 0, false};

INSTANTIATE_TEST_SUITE_P(
    ReadOption, Setting,
    testing::Values(
        Case{"Need_Full_Block", "no", good(OptionId::kNeedFullBlock, 0)},
        Case{"nfb", "N", good(OptionId::kNeedFullBlock, 0)}, Case{"nfb", "yes", kKeepsFullBlocks},
        Case{"nfb", "0", kKeepsFullBlocks}, Case{"nfb", "no ", kKeepsFullBlocks},
        Case{"Pipe_Wait", "0", good(OptionId::kPipeWait, 0)},
        Case{"pw", "600", good(OptionId::kPipeWait, 600)},
        Case{"pw", "601", good(OptionId::kPipeWait, 1)},
        Case{"pw", "-5", good(OptionId::kPipeWait, 1)},
        Case{"pw", "-4294967295", good(OptionId::kPipeWait, 1)},
        Case{"pw", "4294967296", good(OptionId::kPipeWait, 1)},
        Case{"pw", "abc", good(OptionId::kPipeWait, 0)},
        Case{"pw", "7x", good(OptionId::kPipeWait, 7)},
        Case{"block_SIZE", "4096", good(OptionId::kBlockSize, 4096)},
        Case{"b", "1", good(OptionId::kBlockSize, 1)},
        Case{"b", "16777216", good(OptionId::kBlockSize, 16777216)},
        Case{"b", "16777217", bad(OptionId::kBlockSize)}, Case{"b", "0", bad(OptionId::kBlockSize)},
        Case{"b", "4k", bad(OptionId::kBlockSize)}, Case{"b", "-1", bad(OptionId::kBlockSize)},
        Case{"b", "4096\r", bad(OptionId::kBlockSize)},
        Case{"Cfd", "yes", good(OptionId::kConfirmFallbackDeletion, 0)},
        Case{"Cfd", "Y", good(OptionId::kConfirmFallbackDeletion, 0)},
        Case{"Cfd", "no", good(OptionId::kConfirmFallbackDeletion, 0)},
        Case{"Cfd", "N", good(OptionId::kConfirmFallbackDeletion, 0)},
        Case{"Cfd", "1", bad(OptionId::kConfirmFallbackDeletion)},
        Case{"Sc", "0", good(OptionId::kSignatureCheck, 0)},
        Case{"Sc", "2", good(OptionId::kSignatureCheck, 2)},
        Case{"Sc", "3", bad(OptionId::kSignatureCheck)},
        Case{"Sc", "1x", bad(OptionId::kSignatureCheck)},
        Case{"Ll", "0", good(OptionId::kLogLevel, 0)},
        Case{"Ll", "6", good(OptionId::kLogLevel, 6)}, Case{"Ll", "7", bad(OptionId::kLogLevel)},
        Case{"Ll", "", kEmpty}, Case{"nf", "", good(OptionId::kNoFallback, 1)},
        Case{"No_FallBack", "no", good(OptionId::kNoFallback, 1)}, Case{"b", "", kEmpty},
        Case{"Bogus", "", kEmpty}, Case{"Bogus", "1", kUnknown}, Case{"Block", "4096", kUnknown},
        Case{"Block_sizes", "4096", kUnknown}, Case{"", "x", kUnknown}, Case{"n", "x", kUnknown}));

TEST(ReadOption, KnowsEveryNameInBothForms) {
  for (const OptionName& name : optionNames()) {
    for (const std::string_view keyword : {name.keyword, name.shortForm}) {
      const OptionSetting setting = readOption(keyword, "no");
      EXPECT_NE(setting.verdict, OptionVerdict::kUnknownKeyword) << keyword;
      EXPECT_EQ(setting.id, name.id) << keyword;
    }
  }
}

TEST(OptionNames, StandInTheOrderOfComparison) {
  std::vector<std::string> names;
  for (const OptionName& name : optionNames()) names.emplace_back(name.shortForm);
  EXPECT_EQ(names, (std::vector<std::string>{"nfb", "pw", "b", "Ff", "FD", "Cfd", "Sc", "Ld", "Ll",
                                             "nf"}));
}

}  // namespace
}  // namespace tallow::config
