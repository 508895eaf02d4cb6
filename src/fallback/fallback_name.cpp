#include "fallback/fallback_name.hpp"

#include <algorithm>
#include <cstdio>

namespace tallow::fallback {

namespace {

constexpr std::size_t kDigits = 4;

std::string hexDigits(unsigned number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%04x", number);
  return digits;
}

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace

std::uint16_t nameSum(std::string_view pipeName) {
  std::uint32_t sum = 0;
  for (const char character : pipeName) {
    sum += static_cast<std::uint32_t>(static_cast<signed char>(character));
  }
  return static_cast<std::uint16_t>(sum);
}

std::string nameStem(std::string_view pipeName) {
  return std::string(pipeName.substr(pipeName.rfind('\\') + 1)) + hexDigits(nameSum(pipeName));
}

std::string numberedName(std::string_view stem, unsigned number) {
  return std::string(stem) + hexDigits(number) + std::string(kExtension);
}

bool isNumberedName(std::string_view fileName, std::string_view stem) {
  if (fileName.size() != stem.size() + kDigits + kExtension.size()) return false;
  const std::string_view digits = fileName.substr(stem.size(), kDigits);
  return equalIgnoringCase(fileName.substr(0, stem.size()), stem) &&
         digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos &&
         equalIgnoringCase(fileName.substr(stem.size() + kDigits), kExtension);
}

}  // namespace tallow::fallback
