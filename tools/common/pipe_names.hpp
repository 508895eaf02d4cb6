// The one shape that a pipe's name has.
#pragma once

#include <string>

namespace tallow::tools {

/// Whether the name is written \\.\pipe\NAME.
bool isPipeName(const std::string& name);

/// Throws MisuseError unless the name begins with \\.\pipe\ and goes on: a tool would otherwise
/// open an ordinary file of that name.
void requirePipeName(const std::string& name);

}  // namespace tallow::tools
