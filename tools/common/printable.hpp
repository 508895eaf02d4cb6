// Text from data, files, databases and other programs, fit for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace tallow::tools {

// The text, with everything that a terminal would obey spelled out: control characters (U+0000 to
// U+001F, U+007F to U+009F), what ends a line or changes the direction of writing, and bytes that
// are not UTF-8. "\x1B" is such a byte, "\u009B" such a character. All else stays as it is.
std::string printable(std::string_view utf8);

}  // namespace tallow::tools
