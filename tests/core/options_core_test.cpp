// The ten options: their defaults, and what a setting changes.
#include "config/options.hpp"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace tallow::config {
namespace {

using namespace std::string_literals;

auto fieldsOf(const Options& options) {
  return std::tie(options.logDirectory, options.logLevel, options.fallbackFile,
                  options.fallbackDirectory, options.confirmFallbackDeletion,
                  options.signatureCheck, options.blockSize, options.pipeWait,
                  options.needFullBlock, options.noFallback);
}

// Values that are no defaults, so that a field that is set to its default shows.
Options changed() {
  return {.logDirectory = "logs",
          .logLevel = 5,
          .fallbackFile = "old.fbf",
          .fallbackDirectory = "old",
          .confirmFallbackDeletion = true,
          .signatureCheck = 1,
          .blockSize = 77,
          .pipeWait = 33,
          .needFullBlock = false,
          .noFallback = false};
}

struct Change {
  const char* keyword;
  const char* value;
  void (*expect)(Options&);
};
void PrintTo(const Change& change, std::ostream* out) {
  *out << change.keyword << '=' << change.value;
}

class Applied : public testing::TestWithParam<Change> {};

TEST_P(Applied, ChangesItsOwnFieldAlone) {
  const auto& [keyword, value, expect] = GetParam();
  for (const Options& before : {Options{}, changed()}) {
    Options options = before;
    Options expected = before;
    expect(expected);
    applySetting(options, readOption(keyword, value), value);
    EXPECT_EQ(fieldsOf(options), fieldsOf(expected));
  }
}

constexpr auto kNothing = [](Options&) {};

INSTANTIATE_TEST_SUITE_P(
    Good, Applied,
    testing::Values(Change{"nfb", "no", [](Options& o) { o.needFullBlock = false; }},
                    Change{"nfb", "yes", kNothing},
                    Change{"pw", "7", [](Options& o) { o.pipeWait = 7; }},
                    Change{"pw", "601", [](Options& o) { o.pipeWait = 1; }},
                    Change{"b", "16777216", [](Options& o) { o.blockSize = 16777216; }},
                    Change{"Ff", "a b", [](Options& o) { o.fallbackFile = "a b"s; }},
                    Change{"FD", "d", [](Options& o) { o.fallbackDirectory = "d"s; }},
                    Change{"Cfd", "yes", [](Options& o) { o.confirmFallbackDeletion = false; }},
                    Change{"Sc", "0", [](Options& o) { o.signatureCheck = 0; }},
                    Change{"Ld", "d", [](Options& o) { o.logDirectory = "d"s; }},
                    Change{"Ll", "6", [](Options& o) { o.logLevel = 6; }},
                    Change{"nf", "", [](Options& o) { o.noFallback = true; }}));

INSTANTIATE_TEST_SUITE_P(
    Bad, Applied,
    testing::Values(Change{"b", "0", [](Options& o) { o.blockSize = 1048576; }},
                    Change{"Sc", "3", [](Options& o) { o.signatureCheck = 0; }},
                    Change{"Ll", "7", [](Options& o) { o.logLevel = 2; }},
                    Change{"Cfd", "maybe", kNothing}, Change{"b", "", kNothing},
                    Change{"Bogus", "1", kNothing}));

// Which values of an option are bad. An option that is not named here fails the test below.
const std::map<std::string_view, std::vector<const char*>> kBadValues{
    {"Need_Full_Block", {}},
    {"Pipe_Wait", {}},
    {"Block_size", {"0", "16777217", "4k", "-1"}},
    {"Fallback_file", {}},
    {"Fallback_Directory", {}},  // only the disk can tell
    {"Confirm_fallback_deletion", {"maybe"}},
    {"Signature_check", {"3", "x"}},
    {"Log_directory", {}},  // only the disk can tell
    {"Log_level", {"7", "x"}},
    {"No_FallBack", {}},
};

TEST(EveryOption, WithABadValueChangesNoOther) {
  for (const OptionName& name : optionNames()) {
    SCOPED_TRACE(name.keyword);
    const auto bad = kBadValues.find(name.keyword);
    ASSERT_NE(bad, kBadValues.end()) << "say which values of " << name.keyword << " are bad";
    for (const char* value : bad->second) {
      const OptionSetting setting = readOption(name.keyword, value);
      EXPECT_EQ(setting.verdict, OptionVerdict::kBadValue) << value;
      Options options = changed();
      applySetting(options, setting, value);
      const Options before = changed();
      if (setting.id != OptionId::kBlockSize) {
        EXPECT_EQ(options.blockSize, before.blockSize);
      }
      if (setting.id != OptionId::kSignatureCheck) {
        EXPECT_EQ(options.signatureCheck, before.signatureCheck);
      }
      if (setting.id != OptionId::kLogLevel) {
        EXPECT_EQ(options.logLevel, before.logLevel);
      }
      options.blockSize = before.blockSize;
      options.signatureCheck = before.signatureCheck;
      options.logLevel = before.logLevel;
      EXPECT_EQ(fieldsOf(options), fieldsOf(before));
    }
  }
}

TEST(Options, HaveTheDefaultsOfAnEmptyString) {
  const Options options;
  EXPECT_EQ(fieldsOf(options),
            std::make_tuple("", 0U, "", "", false, 2U, 1048576U, 10U, true, false));
}

TEST(NamesDirectory, IsTrueOfTheTwoDirectoriesWithAValue) {
  for (const OptionName& name : optionNames()) {
    const bool isDirectory = name.shortForm == "FD" || name.shortForm == "Ld";
    EXPECT_EQ(namesDirectory(readOption(name.keyword, "1")), isDirectory) << name.keyword;
    EXPECT_FALSE(namesDirectory(readOption(name.keyword, ""))) << name.keyword;
  }
}

}  // namespace
}  // namespace tallow::config
