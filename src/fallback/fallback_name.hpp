// Names of fallback files that no option fixes: directory\stem0000.fbf to directory\stemffff.fbf.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tallow::fallback {

inline constexpr std::string_view kExtension = ".fbf";
inline constexpr unsigned kNumberedNames = 0x10000;

// The sum of a pipe name's characters as signed 8-bit values, low 16 bits.
std::uint16_t nameSum(std::string_view pipeName);

// The text after the pipe name's last backslash, then the name sum as four hexadecimal digits.
std::string nameStem(std::string_view pipeName);

// stem, four lower-case hexadecimal digits, extension.
std::string numberedName(std::string_view stem, unsigned number);

// True if a file name (without its directory, in upper or lower case) is one of a stem's numbered
// names.
bool isNumberedName(std::string_view fileName, std::string_view stem);

}  // namespace tallow::fallback
