// How a pipe's name must be written.
#pragma once

#include <string>

namespace tallow::tools {

// Whether the name is written \\.\pipe\NAME.
bool isPipeName(const std::string& name);

// Throws MisuseError unless the name begins with \\.\pipe\ and has more after it. A tool would
// otherwise open an ordinary file of that name.
void requirePipeName(const std::string& name);

}  // namespace tallow::tools
