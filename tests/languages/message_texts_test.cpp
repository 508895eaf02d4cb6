// The texts in the language libraries as built, compared with this test's own table of what the
// module passes with each message.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

namespace tallow {
namespace {

// Argument types in the order in which the module passes them: s text, d int, u unsigned, f double.
const std::map<UINT, std::string> kArguments = {
    {6, "s"},    {8, ""},      {12, ""},     {13, "d"}, {15, "s"},    {16, ""},   {20, "ss"},
    {23, ""},    {24, "ssds"}, {32, ""},     {33, ""},  {34, "s"},    {37, "s"},  {38, "s"},
    {39, "s"},   {40, "s"},    {41, "s"},    {42, ""},  {43, ""},     {44, "s"},  {45, "ss"},
    {49, "u"},   {51, ""},     {52, ""},     {53, "s"}, {54, "s"},    {55, ""},   {56, ""},
    {57, "ssf"}, {58, "s"},    {59, "dddd"}, {60, ""},  {61, "s"},    {64, ""},   {65, ""},
    {66, ""},    {67, ""},     {68, ""},     {69, ""},  {70, ""},     {71, ""},   {72, "sssd"},
    {73, ""},    {74, "d"},    {75, "s"},    {76, ""},  {78, "sdsd"}, {79, "ss"}, {80, "s"},
    {81, "s"},   {82, "s"},    {83, ""},     {84, ""},  {85, ""},     {86, "sf"}, {87, "ss"},
    {88, "s"},   {89, "s"},    {93, "s"},    {94, "s"}, {95, ""},     {96, "ss"}, {97, "s"},
    {98, "ss"},  {99, "s"},    {100, "s"},   {101, ""}, {102, ""},    {103, "s"}, {104, "s"},
    {105, "s"}};

// Their last argument is the system's error text, which ends with a line break.
constexpr std::array<UINT, 9> kEndInSystemText = {39, 40, 41, 45, 61, 79, 103, 104, 105};

struct FreeModule {
  void operator()(HMODULE module) const { FreeLibrary(module); }
};
using Library = std::unique_ptr<std::remove_pointer_t<HMODULE>, FreeModule>;

class MessageTexts : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override { ASSERT_TRUE(library_) << name() << ": error " << GetLastError(); }

  static std::string name() { return "tallowin" + GetParam(); }

  std::wstring text(UINT id) const {
    const wchar_t* begin = nullptr;  // a size of 0 asks for the address of the resource itself
    const int length = LoadStringW(library_.get(), id, reinterpret_cast<wchar_t*>(&begin), 0);
    return length > 0 ? std::wstring(begin, static_cast<std::size_t>(length)) : std::wstring();
  }

  Library library_{LoadLibraryA(name().c_str())};
};

// A value of the file's version resource; empty if there is none.
std::string versionValue(const std::string& file, const std::string& key) {
  DWORD unused = 0;
  std::vector<char> block(GetFileVersionInfoSizeA(file.c_str(), &unused));
  void* value = nullptr;
  UINT length = 0;
  if (!GetFileVersionInfoA(file.c_str(), 0, static_cast<DWORD>(block.size()), block.data()) ||
      !VerQueryValueA(block.data(), key.c_str(), &value, &length)) {
    return {};
  }
  return std::string(static_cast<const char*>(value), length);
}

// The language that the version resource gives.
WORD languageOf(const std::string& file) {
  const std::string translation = versionValue(file, "\\VarFileInfo\\Translation");
  WORD language = 0;
  if (translation.size() >= sizeof language) {
    std::memcpy(&language, translation.data(), sizeof language);
  }
  return language;
}

// The argument type that each conversion takes; '?' for one that the module never passes.
std::string argumentTypes(const std::wstring& text) {
  std::string types;
  for (auto percent = text.find(L'%'); percent != std::wstring::npos;
       percent = text.find(L'%', percent + 1)) {
    const auto letter = text.find_first_not_of(L"0123456789.-", percent + 1);
    const bool known = letter != std::wstring::npos &&
                       std::wstring(L"sduf").find(text[letter]) != std::wstring::npos;
    types += known ? static_cast<char>(text[letter]) : '?';
  }
  return types;
}

TEST_P(MessageTexts, TakeTheArgumentsThatTheModulePasses) {
  for (const auto& [id, arguments] : kArguments) {
    EXPECT_EQ(argumentTypes(text(id)), arguments) << "message " << id;
  }
}

TEST_P(MessageTexts, ExistForEveryIdAndNoOther) {
  for (UINT id = 0; id <= 0xffff; ++id) {
    EXPECT_EQ(text(id).empty(), !kArguments.contains(id)) << "message " << id;
  }
}

TEST_P(MessageTexts, EndWithTheSystemTextWhereTheyHaveOne) {
  for (const UINT id : kEndInSystemText) {
    EXPECT_TRUE(text(id).ends_with(L"%s")) << "message " << id;
  }
}

TEST_P(MessageTexts, KeepToOneLineOfTheLog) {
  for (const auto& entry : kArguments) {
    if (entry.first == 57) continue;  // the question in a message box
    EXPECT_EQ(text(entry.first).find_first_of(L"\r\n"), std::wstring::npos) << entry.first;
  }
}

TEST_P(MessageTexts, NameEachLevelByAWordOfItsOwn) {
  std::map<std::wstring, UINT> words;
  for (UINT id = 64; id <= 71; ++id) {
    EXPECT_EQ(text(id).find(L' '), std::wstring::npos) << "message " << id;
    EXPECT_TRUE(words.emplace(text(id), id).second) << "message " << id;
  }
}

TEST_P(MessageTexts, ShowVersionsAsTwoDigitGroups) {
  EXPECT_EQ(text(59), L"%02d.%02d.%02d.%02d");
}

TEST_P(MessageTexts, WriteTheRepeatSummaryInTheShapeOfALogLine) {
  EXPECT_TRUE(text(78).starts_with(L"%s %d %s 78 ")) << "time, process, level word, id";
}

TEST_P(MessageTexts, AreReadableInAnsiCodePage) {
  DWORD codePage = 0;
  ASSERT_NE(GetLocaleInfoW(MAKELCID(languageOf(name() + ".dll"), SORT_DEFAULT),
                           LOCALE_IDEFAULTANSICODEPAGE | LOCALE_RETURN_NUMBER,
                           reinterpret_cast<wchar_t*>(&codePage), sizeof codePage / 2),
            0);
  for (const auto& entry : kArguments) {
    const std::wstring wide = text(entry.first);
    BOOL replaced = FALSE;
    WideCharToMultiByte(codePage, WC_NO_BEST_FIT_CHARS, wide.data(), static_cast<int>(wide.size()),
                        nullptr, 0, nullptr, &replaced);
    EXPECT_FALSE(replaced) << "message " << entry.first;
  }
}

TEST_P(MessageTexts, CarryTheirFilesNameInTheVersionResource) {
  const std::string file = name() + ".dll";
  std::array<char, 64> key{};
  std::snprintf(key.data(), key.size(), "\\StringFileInfo\\%04x04b0\\OriginalFilename",
                unsigned{languageOf(file)});
  EXPECT_EQ(versionValue(file, key.data()), file + '\0') << key.data();
}

TEST_P(MessageTexts, BelongToTheLanguageOfTheLibrarysName) {
  std::array<char, 8> abbreviation{};
  GetLocaleInfoA(MAKELCID(languageOf(name() + ".dll"), SORT_DEFAULT), LOCALE_SABBREVLANGNAME,
                 abbreviation.data(), static_cast<int>(abbreviation.size()));
  EXPECT_STRCASEEQ(abbreviation.data(), GetParam().c_str());
}

std::vector<std::string> languages() {
  std::istringstream list(TALLOW_LANGUAGES);
  return {std::istream_iterator<std::string>(list), {}};
}

INSTANTIATE_TEST_SUITE_P(Languages, MessageTexts, testing::ValuesIn(languages()),
                         [](const auto& each) { return each.param; });

TEST(Languages, AreEnglishGermanFrenchSpanishAndJapaneseAtLeast) {
  EXPECT_THAT(languages(), testing::IsSupersetOf({"enu", "deu", "fra", "esp", "jpn"}));
}

}  // namespace
}  // namespace tallow
