// Which language the module uses, depending on the locale of the thread that loads it.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdio>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/surroundings.hpp"

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

// The language libraries that a module maps and frees, by name.
class LibraryWatch {
 public:
  LibraryWatch() : watch_([this](HMODULE module) { watchLibraries(module); }) {}

  const std::vector<std::string>& mapped() const { return mapped_; }
  bool allGivenBack() const { return given_ == handles_; }

 private:
  void watchLibraries(HMODULE module) {
    if (!importsFunction(module, "LoadStringA") || !importsFunction(module, "timeBeginPeriod")) {
      return;
    }
    load_.emplace(module, "LoadLibraryExW", [this](LPCWSTR name, HANDLE file, DWORD flags) {
      const HMODULE library = load_->original(name, file, flags);
      if (library != nullptr) {
        const std::wstring_view path = name;
        const std::wstring_view base = path.substr(path.rfind(L'\\') + 1);
        mapped_.emplace_back(base.begin(), base.end());
        handles_.push_back(library);
      }
      return library;
    });
    free_.emplace(module, "FreeLibrary", [this](HMODULE library) {
      given_.push_back(library);
      return free_->original(library);
    });
  }

  std::vector<std::string> mapped_;
  std::vector<HMODULE> handles_;
  std::vector<HMODULE> given_;
  std::optional<Hook<struct LoadTag, HMODULE(LPCWSTR, HANDLE, DWORD)>> load_;
  std::optional<Hook<struct FreeTag, BOOL(HMODULE)>> free_;
  LoadWatch watch_;
};

// The library's text for an Open without a pipe name.
std::string emptyNameText(const char* name) {
  const HMODULE library = LoadLibraryExA((programDirectory() + '\\' + name + ".dll").c_str(),
                                         nullptr, LOAD_LIBRARY_AS_DATAFILE);
  std::array<char, 512> format{};
  std::array<char, 512> title{};
  std::array<char, 1024> text{};
  LoadStringA(library, 44, format.data(), static_cast<int>(format.size()));
  LoadStringA(library, 60, title.data(), static_cast<int>(title.size()));
  FreeLibrary(library);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  std::snprintf(text.data(), text.size(), format.data(), title.data());
#pragma GCC diagnostic pop
  return text.data();
}

TEST_P(LanguageChoice, MapsThisLibraryAndNoOther) {
  const LibraryWatch watch;
  const Module module;
  EXPECT_EQ(watch.mapped(), std::vector<std::string>{GetParam().library + std::string(".dll")});
  EXPECT_EQ(GetModuleHandleA(GetParam().library), nullptr) << "it is loaded, not just mapped";
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
  const LibraryWatch watch;
  {
    const Module module;
    EXPECT_FALSE(watch.allGivenBack());
  }
  EXPECT_TRUE(watch.allGivenBack());
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
