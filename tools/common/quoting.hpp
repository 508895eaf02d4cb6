// Quotes an argument so that a command line passes it on unchanged.
#pragma once

#include <string>

namespace tallow::tools {

// The argument as it can be pasted into cmd, in double quotes if it needs them. PowerShell reads it
// the same way unless it holds a "$", a backtick, a quote or more than one "%". For those, no
// spelling serves both.
std::string quotedArgument(const std::string& argument);

}  // namespace tallow::tools
