// Message texts, and how the module finds its language library when it is loaded.
#include "support/module_test.hpp"
#include "support/system_faults.hpp"

namespace tallow::test {
namespace {

class MessageLength : public JobTest, public testing::WithParamInterface<std::size_t> {};

// The buffers that a message is formatted into hold 255, 511, 2560, 4608, 6656 and 8704 characters.
TEST_P(MessageLength, IsKeptWhole) {
  initialise();
  constexpr const char* kSyntax = "on windows named pipe syntax is: \\\\.\\pipe\\pipename";
  const std::string name(GetParam() - formattedMessage(45, "", kSyntax).size(), 'n');
  const Answer answer = host.open(name);
  EXPECT_EQ(answer.textLength, GetParam());
  EXPECT_EQ(answer.text, formattedMessage(45, name.c_str(), kSyntax).substr(0, 511));
}

INSTANTIATE_TEST_SUITE_P(Message, MessageLength,
                         testing::Values(254, 255, 256, 257, 510, 511, 512, 513, 2559, 2560, 2561,
                                         4608, 4609, 6656, 6657, 8703, 8704));

using Message = JobTest;

TEST_F(Message, LongerThanTheLargestBufferIsCut) {
  initialise();
  for (const std::size_t length : {8800u, 20000u, 65535u}) {
    EXPECT_EQ(host.open(std::string(length, 'n')).textLength, 8704u);
  }
}

TEST_F(Message, IsLoadedWhole) {
  initialise();
  for (const std::size_t length : {510u, 511u, 512u, 2047u, 2048u}) {
    const ReplacedTexts texts(module(), 45, std::string(length, 't'));
    EXPECT_EQ(host.open("no pipe").textLength, length);
  }
}

// The libraries and message boxes that a module asks for while its load fails.
struct FailedLoad {
  std::vector<std::wstring> libraries;
  std::vector<std::string> boxes;
  bool loaded = false;
};

// True for the module, false for the system's libraries that are loaded with it.
bool isModule(HMODULE library) {
  return importsFunction(library, "LoadStringA") && importsFunction(library, "timeBeginPeriod");
}

FailedLoad loadWithoutLanguages(LCID locale) {
  FailedLoad result;
  std::optional<Hook<struct LibraryTag, HMODULE(LPCWSTR, HANDLE, DWORD)>> library;
  std::optional<MessageBoxes> boxes;
  std::optional<Hook<struct LocaleTag, LCID()>> threadLocale;
  {
    const LoadWatch watch([&](HMODULE module) {
      if (!isModule(module)) return;
      library.emplace(module, "LoadLibraryExW", [&](LPCWSTR name, HANDLE, DWORD flags) {
        EXPECT_EQ(flags, DWORD{LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE});
        result.libraries.emplace_back(name);
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
      });
      boxes.emplace(module);
      threadLocale.emplace(module, "GetThreadLocale", [=] { return locale; });
    });
    const HMODULE module = LoadLibraryA(modulePath().c_str());
    result.loaded = module != nullptr;
    if (module != nullptr) FreeLibrary(module);
  }
  for (const MessageBoxes::Box& box : boxes.value().shown) {
    EXPECT_EQ(box.owner, nullptr);
    EXPECT_EQ(box.buttons, UINT{MB_OK});
    result.boxes.push_back(box.text);
  }
  return result;
}

std::string languageName(LCID locale) {
  char name[256] = {};
  GetLocaleInfoA(locale, LOCALE_SLANGUAGE, name, sizeof name);
  return name;
}

constexpr LCID kEnglish = 0x0409;
constexpr LCID kGerman = 0x0407;
constexpr LCID kGermanAustria = 0x0c07;

class LanguageLibrary : public testing::Test {
 protected:
  ScopedEnvironment noLogDirectory{"NPLOGDIR", std::nullopt};
};

TEST_F(LanguageLibrary, IsLookedForBesideTheModuleFirst) {
  const FailedLoad load = loadWithoutLanguages(kGermanAustria);
  const std::string narrow = programDirectory() + '\\';
  const std::wstring beside(narrow.begin(), narrow.end());  // ASCII
  EXPECT_THAT(load.libraries, ElementsAre(beside + L"tallowindea.dll", beside + L"tallowindeu.dll",
                                          beside + L"tallowinenu.dll", L"tallowindea.dll",
                                          L"tallowindeu.dll", L"tallowinenu.dll"));
}

TEST_F(LanguageLibrary, IsNeeded) {
  const FailedLoad load = loadWithoutLanguages(kEnglish);
  EXPECT_FALSE(load.loaded);
  EXPECT_EQ(load.boxes.size(), 1u);
}

TEST_F(LanguageLibrary, BoxNamesThreeAttempts) {
  const FailedLoad load = loadWithoutLanguages(kGermanAustria);
  EXPECT_THAT(
      load.boxes,
      ElementsAre("Cannot load language specific resources (tried \"tallowindea\" (" +
                  languageName(kGermanAustria) + "), \"tallowindeu\" (" + languageName(kGerman) +
                  "), and \"tallowinenu\" (English (United States)))."));
}

TEST_F(LanguageLibrary, BoxNamesTwoAttempts) {
  const FailedLoad load = loadWithoutLanguages(kGerman);
  EXPECT_THAT(
      load.boxes,
      ElementsAre("Cannot load language specific resources (tried \"tallowindeu\" (" +
                  languageName(kGerman) + ") and \"tallowinenu\" (English (United States)))."));
}

TEST_F(LanguageLibrary, BoxNamesOneAttempt) {
  const FailedLoad load = loadWithoutLanguages(kEnglish);
  EXPECT_THAT(load.boxes, ElementsAre("Cannot load language specific resources (tried "
                                      "\"tallowinenu\" (English (United States)))."));
}

TEST_F(LanguageLibrary, FailedLoadLeavesTheNextOneUnharmed) {
  ASSERT_FALSE(loadWithoutLanguages(kEnglish).loaded);
  const Module module;
  Host host(module);
  EXPECT_EQ(host.init("").code, pmrcSuccess);
}

TEST_F(LanguageLibrary, BoxIsNotShownWhenOneIsFound) {
  std::optional<MessageBoxes> boxes;
  const LoadWatch watch([&](HMODULE module) {
    if (isModule(module)) boxes.emplace(module);
  });
  {
    const Module module;
  }
  ASSERT_TRUE(boxes);
  EXPECT_THAT(boxes->shown, IsEmpty());
}

}  // namespace
}  // namespace tallow::test
