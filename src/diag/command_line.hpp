// The host program's name, from its command line.
#pragma once

#include <string>
#include <string_view>

namespace tallow::diag {

// The first word of a command line: the text between double quotes if it begins with one, else the
// text up to the first comma, space, tab or newline.
std::string firstWord(std::string_view commandLine);

}  // namespace tallow::diag
