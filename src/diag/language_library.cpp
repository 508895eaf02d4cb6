#include "diag/language_library.hpp"

#include <string>

#include "diag/language_names.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::diag {

namespace {

constinit HMODULE library = nullptr;

std::string localeText(LCID locale, LCTYPE type) {
  char text[256] = {};
  GetLocaleInfoA(locale, type, text, sizeof text);
  return text;
}

LanguageAttempt attemptFor(LCID locale) {
  return {languageLibraryName(localeText(locale, LOCALE_SABBREVLANGNAME)),
          localeText(locale, LOCALE_SLANGUAGE)};
}

// Maps a library as data. It holds only texts, and no code in it ever runs, wherever it was found.
HMODULE mapLibrary(const std::wstring& directory, const std::string& name) {
  // The name is ASCII.
  const std::wstring path = directory + std::wstring(name.begin(), name.end()) + L".dll";
  return LoadLibraryExW(path.c_str(), nullptr,
                        LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE);
}

}  // namespace

bool loadLanguageLibrary(const std::wstring& modulePath) {
  const LCID locale = GetThreadLocale();
  const std::array<LanguageAttempt, 3> attempts = {
      attemptFor(locale), attemptFor(defaultSublanguage(locale)),
      LanguageAttempt{languageLibraryName("enu"), "English (United States)"}};
  // The full path first, so that a library in the working directory can't take its place.
  const std::wstring beside = modulePath.substr(0, modulePath.rfind(L'\\') + 1);
  for (const std::wstring& directory : {beside, std::wstring()}) {
    for (const LanguageAttempt& attempt : attempts) {
      // Without an abbreviation the name would be the module's own.
      if (attempt.library == languageLibraryName("")) continue;
      library = mapLibrary(directory, attempt.library);
      if (library != nullptr) return true;
    }
  }
  const std::string text = describeLanguageFailure(attempts);
  logText(LogLevel::kSetup, MessageId::kFailedWithoutText, text.c_str());
  MessageBoxA(nullptr, text.c_str(), "tallowin", MB_OK | MB_ICONERROR);
  return false;
}

void freeLanguageLibrary() noexcept {
  if (library != nullptr) FreeLibrary(library);
  library = nullptr;
}

HMODULE languageLibrary() noexcept {
  return library;
}

}  // namespace tallow::diag
