// tallow-host --explain.
#pragma once

#include <string>

#include "common/tool_error.hpp"

namespace tallow::host {

// Prints what each option of the initialisation string does. kFailed if one is wrong.
tools::ExitStatus printExplanation(const std::string& initString, bool json);

}  // namespace tallow::host
