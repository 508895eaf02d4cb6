// Quotes an argument so that a command line passes it on unchanged.
#pragma once

#include <string>

namespace tallow::tools {

// The argument in double quotes, by the rules by which a started program reads its command line.
std::string inDoubleQuotes(const std::string& argument);

// The argument as it can be pasted into cmd, in double quotes if it needs them. PowerShell reads it
// the same way unless it holds a "$", a backtick, a quote or more than one "%". For those, no
// spelling serves both.
std::string quotedArgument(const std::string& argument);

}  // namespace tallow::tools
