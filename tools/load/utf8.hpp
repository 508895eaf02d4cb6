// Is it UTF-8?
#pragma once

#include <string_view>

namespace tallow::load {

/// True for well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isUtf8(std::string_view text) noexcept;

}  // namespace tallow::load
