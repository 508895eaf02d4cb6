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

// The module's directory with its backslash; empty if it can't be told.
std::string directoryOf(HMODULE module) {
  char path[MAX_PATH + 1] = {};
  const DWORD length = GetModuleFileNameA(module, path, sizeof path);
  const std::string text(path, length < sizeof path ? length : 0);
  return text.substr(0, text.rfind('\\') + 1);
}

}  // namespace

bool loadLanguageLibrary(HMODULE module) {
  const LCID locale = GetThreadLocale();
  const std::array<LanguageAttempt, 3> attempts = {
      attemptFor(locale), attemptFor(defaultSublanguage(locale)),
      LanguageAttempt{languageLibraryName("enu"), "English (United States)"}};
  // The full path first, so that a library in the working directory can't take its place.
  for (const std::string& directory : {directoryOf(module), std::string()}) {
    for (const LanguageAttempt& attempt : attempts) {
      // Without an abbreviation the name would be the module's own.
      if (attempt.library == languageLibraryName("")) continue;
      library = LoadLibraryA((directory + attempt.library).c_str());
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
