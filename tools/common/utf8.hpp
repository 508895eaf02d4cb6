// UTF-8: is it, and what it is in UTF-16.
#pragma once

#include <cstddef>
#include <string_view>

namespace tallow::tools {

/// Bytes of the well-formed character that `text`, which is not empty, begins with; 0 when it
/// begins with none.
std::size_t characterLength(std::string_view text) noexcept;

/// True for well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isUtf8(std::string_view text) noexcept;

bool isAscii(std::string_view text) noexcept;

/// Writes well-formed UTF-8 as UTF-16 into `units`, which has room for as many units as the text
/// has bytes. The number of units.
std::size_t toUtf16(std::string_view text, char16_t* units) noexcept;

}  // namespace tallow::tools
