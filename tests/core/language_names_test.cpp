// The names of language libraries, and the text about those that could not be loaded.
#include "diag/language_names.hpp"

#include <gtest/gtest.h>

namespace tallow::diag {
namespace {

using Attempts = std::array<LanguageAttempt, 3>;

const LanguageAttempt kAustrian{"tallowindea", "German (Austria)"};
const LanguageAttempt kGerman{"tallowindeu", "German (Germany)"};
const LanguageAttempt kEnglish{"tallowinenu", "English (United States)"};

TEST(LanguageFailure, ListsThreeDifferentAttempts) {
  EXPECT_EQ(describeLanguageFailure(Attempts{kAustrian, kGerman, kEnglish}),
            "Cannot load language specific resources (tried \"tallowindea\" (German (Austria)), "
            "\"tallowindeu\" (German (Germany)), and \"tallowinenu\" (English (United States))).");
}

constexpr const char* kTwo =
    "Cannot load language specific resources (tried \"tallowindeu\" (German (Germany)) and "
    "\"tallowinenu\" (English (United States))).";

TEST(LanguageFailure, ListsTwoEqualAttemptsOnceWhereverTheyStand) {
  EXPECT_EQ(describeLanguageFailure(Attempts{kGerman, kGerman, kEnglish}), kTwo);
  EXPECT_EQ(describeLanguageFailure(Attempts{kGerman, kEnglish, kEnglish}), kTwo);
  EXPECT_EQ(describeLanguageFailure(Attempts{kGerman, kEnglish, kGerman}), kTwo);
}

TEST(LanguageFailure, TellsASingleAttemptAsItIs) {
  EXPECT_EQ(describeLanguageFailure(Attempts{kEnglish, kEnglish, kEnglish}),
            "Cannot load language specific resources (tried \"tallowinenu\" (English (United "
            "States))).");
}

TEST(LanguageFailure, ListsOneLibraryOfTwoLanguageNamesTwice) {
  const LanguageAttempt other{"tallowinenu", "English (World)"};
  EXPECT_EQ(describeLanguageFailure(Attempts{other, kEnglish, kEnglish}),
            "Cannot load language specific resources (tried \"tallowinenu\" (English (World)) and "
            "\"tallowinenu\" (English (United States))).");
}

TEST(LanguageFailure, ShowsNamesWithPlaceholdersAsTheyAre) {
  const LanguageAttempt odd{"tallowin%1", "%2 %s"};
  EXPECT_EQ(describeLanguageFailure(Attempts{odd, odd, odd}),
            "Cannot load language specific resources (tried \"tallowin%1\" (%2 %s)).");
}

TEST(LanguageLibraryName, IsTheBaseNameAndTheAbbreviationInLowerCase) {
  EXPECT_EQ(languageLibraryName("ENU"), "tallowinenu");
  EXPECT_EQ(languageLibraryName("deu"), "tallowindeu");
  EXPECT_EQ(languageLibraryName(""), "tallowin");
}

TEST(DefaultSublanguage, KeepsTheLanguage) {
  EXPECT_EQ(defaultSublanguage(0x0c07), 0x0407u);
  EXPECT_EQ(defaultSublanguage(0x0407), 0x0407u);
  EXPECT_EQ(defaultSublanguage(0x10c0c), 0x040cu);
  EXPECT_EQ(defaultSublanguage(0x03ff), 0x07ffu);
}

}  // namespace
}  // namespace tallow::diag
