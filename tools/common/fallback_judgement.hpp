// Whether a fallback file is the one that a job can be restarted with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "fallback/fallback_format.hpp"

namespace tallow::tools {

// The job that a fallback file must belong to.
struct FallbackOwner {
  std::string pipe;             // byte for byte as the module gets it
  std::uint32_t blockSize = 0;  // bytes
};

// Why the file cannot serve a restart at `position`, in words that follow its name ("is no fallback
// file"). Empty if it can. `beginning` is the beginning of the file, at most
// fallback::kDataStartOffset bytes.
std::string fallbackFault(std::span<const std::byte> beginning, const FallbackOwner& owner,
                          std::uint64_t position);

// The same for any position: says only whether the file belongs to the job.
std::string fallbackFault(std::span<const std::byte> beginning, const FallbackOwner& owner);

}  // namespace tallow::tools
