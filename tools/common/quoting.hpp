// Writing an argument so that a command line gives it back as it was.
#pragma once

#include <string>

namespace tallow::tools {

/// The argument as it can be pasted into cmd, in double quotes if it needs them. PowerShell reads
/// it the same way unless it holds a "$", a backtick, a quote or more than one "%": there is no
/// spelling of these that serves both.
std::string quotedArgument(const std::string& argument);

}  // namespace tallow::tools
