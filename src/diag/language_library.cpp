#include "diag/language_library.hpp"

#include <string>
#include <string_view>

#include "diag/language_names.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::diag {
namespace {

// Trivially destructible, for a process that ends without unloading the module.
struct Mapping {
  HMODULE library;
  bool besideModule;
  char name[32];  // without its extension
};
constinit Mapping mapping = {};

std::string localeText(LCID locale, LCTYPE type) {
  char text[256] = {};
  GetLocaleInfoA(locale, type, text, sizeof text);
  return text;
}

LanguageAttempt attemptFor(LCID locale) {
  return {languageLibraryName(localeText(locale, LOCALE_SABBREVLANGNAME)),
          localeText(locale, LOCALE_SLANGUAGE)};
}

std::wstring directoryOf(const std::wstring& path) {
  return path.substr(0, path.rfind(L'\\') + 1);
}

std::wstring libraryFile(const std::wstring& directory, std::string_view name) {
  // The name is ASCII.
  return directory + std::wstring(name.begin(), name.end()) + L".dll";
}

// Maps a library as data. It holds only texts, and no code in it ever runs, wherever it was found.
HMODULE mapLibrary(const std::wstring& file) {
  return LoadLibraryExW(file.c_str(), nullptr,
                        LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
}

}  // namespace

bool loadLanguageLibrary(const std::wstring& modulePath) {
  const LCID locale = GetThreadLocale();
  const std::array<LanguageAttempt, 3> attempts = {
      attemptFor(locale), attemptFor(defaultSublanguage(locale)),
      LanguageAttempt{languageLibraryName("enu"), "English (United States)"}};
  // The full path first, so that a library in the working directory can't take its place.
  for (const bool beside : {true, false}) {
    const std::wstring directory = beside ? directoryOf(modulePath) : std::wstring();
    for (const LanguageAttempt& attempt : attempts) {
      // Without an abbreviation the name would be the module's own.
      if (attempt.library == languageLibraryName("")) continue;
      mapping.library = mapLibrary(libraryFile(directory, attempt.library));
      if (mapping.library == nullptr) continue;
      mapping.besideModule = beside;
      attempt.library.copy(mapping.name, sizeof mapping.name - 1);
      return true;
    }
  }
  const std::string text = describeLanguageFailure(attempts);
  logText(LogLevel::kSetup, MessageId::kFailedWithoutText, text.c_str());
  MessageBoxA(nullptr, text.c_str(), "tallowin", MB_OK | MB_ICONERROR);
  return false;
}

void freeLanguageLibrary() noexcept {
  if (mapping.library != nullptr) FreeLibrary(mapping.library);
  mapping = {};
}

HMODULE languageLibrary() noexcept {
  return mapping.library;
}

std::wstring languageLibraryPath(const std::wstring& modulePath) {
  return libraryFile(mapping.besideModule ? directoryOf(modulePath) : std::wstring(), mapping.name);
}

}  // namespace tallow::diag
