#include "fallback/fallback_name.hpp"

#include <cstdio>

#include "text/ascii.hpp"

namespace tallow::fallback {
namespace {

constexpr std::size_t kDigits = 4;

std::string hexDigits(unsigned number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%04x", number);
  return digits;
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
  return text::equalIgnoringCase(fileName.substr(0, stem.size()), stem) &&
         digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos &&
         text::equalIgnoringCase(fileName.substr(stem.size() + kDigits), kExtension);
}

}  // namespace tallow::fallback
