// Writing an argument so that a command line gives it back as it was.
#pragma once

#include <string>

namespace tallow::tools {

/// The argument, in quotes if it needs them, as the rules of Windows command lines have it.
std::string quotedArgument(const std::string& argument);

}  // namespace tallow::tools
