// Checks that text is UTF-8, and converts it to UTF-16.
#pragma once

#include <cstddef>
#include <string_view>

namespace tallow::tools {

// The length in bytes of the well-formed character at the beginning of `text`, which must not be
// empty. 0 if there is none.
std::size_t characterLength(std::string_view text) noexcept;

// Whether the text is well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isUtf8(std::string_view text) noexcept;

bool isAscii(std::string_view text) noexcept;

// Writes well-formed UTF-8 as UTF-16 into `units`, which must have room for as many units as the
// text has bytes. Returns the number of units.
std::size_t toUtf16(std::string_view text, char16_t* units) noexcept;

}  // namespace tallow::tools
