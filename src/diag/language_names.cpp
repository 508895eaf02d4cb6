#include "diag/language_names.hpp"

#include <algorithm>
#include <vector>

#include "text/ascii.hpp"

namespace tallow::diag {
namespace {

std::string joined(const std::vector<std::string>& descriptions) {
  switch (descriptions.size()) {
    case 1:
      return descriptions[0];
    case 2:
      return descriptions[0] + " and " + descriptions[1];
    default:
      return descriptions[0] + ", " + descriptions[1] + ", and " + descriptions[2];
  }
}

}  // namespace

std::string languageLibraryName(std::string_view abbreviation) {
  std::string name = "tallowin";
  for (const char letter : abbreviation) name += text::lower(letter);
  return name;
}

std::string describeLanguageFailure(const std::array<LanguageAttempt, 3>& attempts) {
  std::vector<std::string> descriptions;
  for (const LanguageAttempt& attempt : attempts) {
    std::string description = "\"" + attempt.library + "\" (" + attempt.language + ")";
    if (std::find(descriptions.begin(), descriptions.end(), description) == descriptions.end()) {
      descriptions.push_back(std::move(description));
    }
  }
  return "Cannot load language specific resources (tried " + joined(descriptions) + ").";
}

}  // namespace tallow::diag
