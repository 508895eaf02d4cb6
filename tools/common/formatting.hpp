// Amounts as people read them.
#pragma once

#include <cstdint>
#include <string>

namespace tallow::tools {

// "0 B", "512 B", "1.5 KB", "268.4 MB": decimal units, at most one digit after the point.
std::string formatBytes(std::uint64_t bytes);

// "12.3 MB/s"; "-" while no time has passed.
std::string formatRate(std::uint64_t bytes, double seconds);

// "0:07", "12:34", "1:02:03".
std::string formatDuration(double seconds);

// "1 block", "2 blocks", "1,234 blocks".
std::string formatCount(std::uint64_t count, const std::string& noun);

}  // namespace tallow::tools
