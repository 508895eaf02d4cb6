// What --explain says about an initialisation string.
#include "common/init_string.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tallow::tools {
namespace {

using testing::HasSubstr;

TEST(Explain, AcceptsAnEmptyString) {
  const InitStringReport report = explainInitString("");
  EXPECT_TRUE(report.accepted());
  EXPECT_TRUE(report.options.empty());
  EXPECT_EQ(report.firstComplaint(), "");
}

TEST(Explain, KeepsTheDefaultsThatAreNotSet) {
  const config::Options options = explainInitString("Log_level=1").effective;
  EXPECT_TRUE(options.needFullBlock);
  EXPECT_EQ(options.blockSize, 1048576U);
  EXPECT_EQ(options.pipeWait, 10U);
  EXPECT_EQ(options.signatureCheck, 2U);
  EXPECT_FALSE(options.noFallback);
}

TEST(Explain, FindsOptionsByShortFormAndAnyCase) {
  const InitStringReport report = explainInitString("B=4096 SC=1 ff=a.fbf");
  EXPECT_TRUE(report.accepted());
  EXPECT_EQ(report.options[0].canonical, "Block_size");
  EXPECT_EQ(report.effective.blockSize, 4096U);
  EXPECT_EQ(report.effective.signatureCheck, 1U);
  EXPECT_EQ(report.effective.fallbackFile, "a.fbf");
}

TEST(Explain, LetsALaterOptionOverrideAnEarlierOne) {
  EXPECT_EQ(explainInitString("b=1 b=2").effective.blockSize, 2U);
}

TEST(Explain, KnowsThatFullBlocksCannotBeSwitchedOnAgain) {
  const InitStringReport report = explainInitString("nfb=no nfb=yes");
  EXPECT_FALSE(report.effective.needFullBlock);
  EXPECT_THAT(report.options[1].text, HasSubstr("changes nothing"));
}

TEST(Explain, ShowsWhatNoFallbackSwallows) {
  const InitStringReport report = explainInitString("No_FallBack Block_size=5");
  EXPECT_TRUE(report.effective.noFallback);
  EXPECT_EQ(report.effective.blockSize, 1048576U);
  EXPECT_THAT(report.options[0].text, HasSubstr("\"Block_size=5\" is ignored"));
}

TEST(Explain, ClampsTheWait) {
  EXPECT_EQ(explainInitString("pw=600").effective.pipeWait, 600U);
  EXPECT_EQ(explainInitString("pw=601").effective.pipeWait, 1U);
}

TEST(Explain, RefusesValuesOutOfRange) {
  for (const char* text : {"b=0", "b=16777217", "b=4k", "Ll=7", "Sc=3", "Cfd=maybe"}) {
    const InitStringReport report = explainInitString(text);
    EXPECT_FALSE(report.accepted()) << text;
    EXPECT_THAT(report.firstComplaint(), HasSubstr("must be")) << text;
  }
}

TEST(Explain, RefusesAnOptionWithoutValue) {
  EXPECT_THAT(explainInitString("Block_size=").firstComplaint(), HasSubstr("has no value"));
}

TEST(Explain, SuggestsTheOptionThatWasMeant) {
  EXPECT_EQ(explainInitString("Block_sze=1").firstComplaint(),
            "\"Block_sze\" is not an option; did you mean Block_size?");
}

TEST(Explain, ReportsAMissingQuote) {
  const InitStringReport report = explainInitString("b=5 Ff='abc");
  EXPECT_FALSE(report.accepted());
  EXPECT_EQ(report.effective.blockSize, 5U);
  EXPECT_THAT(report.firstComplaint(), HasSubstr("Ff has no closing quote"));
}

TEST(Explain, ReportsWhatIsIgnoredAfterALoneEqualsSign) {
  const InitStringReport report = explainInitString("b=5 =6 b=7");
  EXPECT_TRUE(report.accepted());
  EXPECT_EQ(report.effective.blockSize, 5U);
  EXPECT_THAT(report.ending, HasSubstr("\"=6 b=7\" is ignored"));
}

TEST(Explain, ReadsUpToTheFirstNul) {
  EXPECT_EQ(explainInitString(std::string_view("b=5\0b=7", 7)).effective.blockSize, 5U);
}

TEST(Explain, KnowsWhatABadValueLeaves) {
  const config::Options options =
      explainInitString("b=7 b=0 Sc=1 Sc=3 Ll=6 Ll=7 pw=5 pw=").effective;
  EXPECT_EQ(options.blockSize, 1048576U);
  EXPECT_EQ(options.signatureCheck, 0U);
  EXPECT_EQ(options.logLevel, 2U);
  EXPECT_EQ(options.pipeWait, 5U);
}

config::DirectoryState pretendedState(const std::string& path) {
  if (path == "there") return config::DirectoryState::kUsable;
  return path == "sealed" ? config::DirectoryState::kNotWritable
                          : config::DirectoryState::kNoDirectory;
}

TEST(Explain, RefusesAFolderThatCannotBeUsedAndKeepsTheOneBefore) {
  for (const std::string option : {"FD=", "Ld="}) {
    for (const auto& [folder, reason] :
         {std::pair("absent", "is not a folder"), std::pair("sealed", "cannot be written to"),
          std::pair("there\\", "leave out the \\ at its end")}) {
      const InitStringReport report =
          explainInitString(option + "there " + option + folder, pretendedState);
      EXPECT_FALSE(report.accepted()) << folder;
      EXPECT_TRUE(report.options[0].good) << folder;
      EXPECT_THAT(report.firstComplaint(), HasSubstr(reason));
      const config::Options& options = report.effective;
      EXPECT_EQ(options.fallbackDirectory + options.logDirectory, "there");
    }
  }
}

TEST(NearestOption, SeesSlipsOfTheFingers) {
  EXPECT_EQ(nearestOption("Nede_Full_Block"), "Need_Full_Block");
  EXPECT_EQ(nearestOption("blocksize"), "Block_size");
  EXPECT_EQ(nearestOption("Fallback_dir"), "Fallback_Directory");
  EXPECT_EQ(nearestOption("log_leve"), "Log_level");
}

TEST(NearestOption, StaysSilentWhenNothingIsNear) {
  EXPECT_EQ(nearestOption("speed"), "");
  EXPECT_EQ(nearestOption("x"), "");
}

}  // namespace
}  // namespace tallow::tools
