// Names of language libraries and the description of failed attempts to load one.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tallow::diag {

// One attempt to load a language library: its name without directory and extension ("tallowinenu")
// and the name of its language.
struct LanguageAttempt {
  std::string library;
  std::string language;
};

// The locale with its sublanguage replaced by the language's default one.
constexpr unsigned defaultSublanguage(unsigned locale) {
  return (locale & 0x3ffU) | 0x400U;
}

// The library's name for a three-letter language abbreviation in any case.
std::string languageLibraryName(std::string_view abbreviation);

// "Cannot load language specific resources (tried …)." with equal attempts listed once.
std::string describeLanguageFailure(const std::array<LanguageAttempt, 3>& attempts);

}  // namespace tallow::diag
