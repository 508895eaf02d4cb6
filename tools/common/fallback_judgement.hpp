// Whether a fallback file is the one that a job can be restarted with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "fallback/fallback_format.hpp"

namespace tallow::tools {

/// What a fallback file must belong to.
struct FallbackOwner {
  std::string pipe;             // byte for byte as the module is given it
  std::uint32_t blockSize = 0;  // bytes
};

/// What stands against the file's serving a restart at `position`, as words to follow its name
/// ("is no fallback file"); empty when nothing does. `beginning` is the file's, at most
/// fallback::kDataStartOffset bytes of it.
std::string fallbackFault(std::span<const std::byte> beginning, const FallbackOwner& owner,
                          std::uint64_t position);

/// The same for any position: whether the file is that of the job at all.
std::string fallbackFault(std::span<const std::byte> beginning, const FallbackOwner& owner);

}  // namespace tallow::tools
