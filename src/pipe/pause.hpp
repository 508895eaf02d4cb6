// The growing pause between two reads of an empty pipe.
#pragma once

#include <cstdint>

namespace tallow::pipe {

inline constexpr std::uint64_t kFirstPause = 1;  // milliseconds

// The pause after this one: twice as long, up to the longest. All in milliseconds.
constexpr std::uint64_t nextPause(std::uint64_t pause, std::uint64_t longest) {
  if (pause == longest || 2 * pause > longest) return longest;
  return 2 * pause;
}

}  // namespace tallow::pipe
