// The command line of tallow-load.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/tool_error.hpp"
#include "load/job/load_options.hpp"

namespace tallow::load {

// Returns an exit status if there is nothing more to do. Throws MisuseError.
std::optional<tools::ExitStatus> readCommandLine(const std::vector<std::string>& arguments,
                                                 LoadOptions& options);

}  // namespace tallow::load
