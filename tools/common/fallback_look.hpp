// Looks at a job's fallback file while the module has it open, or nobody.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/fallback_judgement.hpp"
#include "common/init_string.hpp"

namespace tallow::tools {

// Where the module puts the fallback file. Empty if no option names the file. The path is as
// written, so it may be relative.
std::string fallbackPath(const config::Options& options);

// The fault of a file that does not exist.
inline constexpr const char* kFallbackFileAbsent = "is not there";

// Why the file cannot serve a restart at `position` (none: at any position), in words that follow
// its name. Empty if it can.
std::string lookAtFallbackFile(const std::string& path, const FallbackOwner& owner,
                               std::optional<std::uint64_t> position);

// Whether a process has the file open in such a way that the module could not use it.
bool isFallbackFileHeld(const std::string& path);

}  // namespace tallow::tools
