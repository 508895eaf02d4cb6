// A look at a job's fallback file while the module, or nobody, has it open.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/fallback_judgement.hpp"
#include "common/init_string.hpp"

namespace tallow::tools {

/// Where the module puts the fallback file; empty when no option names the file. The path is as
/// written, so it may be relative.
std::string fallbackPath(const EffectiveOptions& options);

/// The fault of a file that does not exist.
inline constexpr const char* kFallbackFileAbsent = "is not there";

/// What stands against a restart with this file at `position` (none: at any), as words to follow
/// its name; empty when nothing does.
std::string lookAtFallbackFile(const std::string& path, const FallbackOwner& owner,
                               std::optional<std::uint64_t> position);

/// Whether a process has the file open in such a way that the module could not use it.
bool isFallbackFileHeld(const std::string& path);

}  // namespace tallow::tools
