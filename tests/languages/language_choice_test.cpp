// Which language the module speaks, told by the locale of the thread that loads it.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdio>
#include <ostream>
#include <string>

#include "support/host.hpp"

namespace tallow::test {
namespace {

struct Choice {
  const char* name;
  LCID locale;
  const char* library;
};
void PrintTo(const Choice& choice, std::ostream* out) {
  *out << choice.name;
}

class LanguageChoice : public testing::TestWithParam<Choice> {
 protected:
  void SetUp() override { ASSERT_TRUE(SetThreadLocale(GetParam().locale)); }
  void TearDown() override { SetThreadLocale(before_); }

 private:
  LCID before_ = GetThreadLocale();
};

// The text for an Open without a pipe name, as the library has it.
std::string emptyNameText(const char* library) {
  const HMODULE module = GetModuleHandleA(library);
  std::array<char, 512> format{};
  std::array<char, 512> title{};
  std::array<char, 1024> text{};
  LoadStringA(module, 44, format.data(), static_cast<int>(format.size()));
  LoadStringA(module, 60, title.data(), static_cast<int>(title.size()));
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text.data(), text.size(), format.data(), title.data());
#pragma GCC diagnostic pop
  return text.data();
}

TEST_P(LanguageChoice, LoadsThisLibraryAndNoOther) {
  const Module module;
  for (const char* library :
       {"tallowinenu", "tallowindeu", "tallowinfra", "tallowinesp", "tallowinjpn"}) {
    EXPECT_EQ(GetModuleHandleA(library) != nullptr, std::string(library) == GetParam().library)
        << library;
  }
}

TEST_P(LanguageChoice, SpeaksItToTheHost) {
  const Module module;
  Host host(module);
  ASSERT_EQ(host.init("").code, pmrcSuccess);
  const Answer answer = host.open("");
  ASSERT_TRUE(answer.text.has_value());
  EXPECT_FALSE(answer.text->empty());
  EXPECT_EQ(*answer.text, emptyNameText(GetParam().library));
}

TEST_P(LanguageChoice, GivesTheLibraryBackAtUnload) {
  { const Module module; }
  EXPECT_EQ(GetModuleHandleA(GetParam().library), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Locales, LanguageChoice,
                         testing::Values(Choice{"EnglishUnitedStates", 0x0409, "tallowinenu"},
                                         Choice{"German", 0x0407, "tallowindeu"},
                                         Choice{"GermanAustriaByItsDefault", 0x0c07, "tallowindeu"},
                                         Choice{"French", 0x040c, "tallowinfra"},
                                         Choice{"FrenchCanadaByItsDefault", 0x0c0c, "tallowinfra"},
                                         Choice{"SpanishTraditional", 0x040a, "tallowinesp"},
                                         Choice{"SpanishMexicoByItsDefault", 0x080a, "tallowinesp"},
                                         Choice{"SpanishModernByItsDefault", 0x0c0a, "tallowinesp"},
                                         Choice{"Japanese", 0x0411, "tallowinjpn"},
                                         Choice{"EnglishUnitedKingdomByItsDefault", 0x0809,
                                                "tallowinenu"},
                                         Choice{"AfrikaansByEnglish", 0x0436, "tallowinenu"}),
                         [](const auto& each) { return std::string(each.param.name); });

}  // namespace
}  // namespace tallow::test
