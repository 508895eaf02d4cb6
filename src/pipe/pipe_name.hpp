// What can be told of a pipe name without asking the system.
#pragma once

#include <string_view>

namespace tallow::pipe {

inline constexpr std::string_view kPipePrefix = R"(\\.\pipe\)";

// The prefix is compared byte for byte; nothing need follow it.
bool isPipeName(std::string_view name);

// Whether UTF-16LE bytes converted from sourceLength bytes of UTF-8 are plain ASCII.
bool isAsciiUtf16(std::string_view utf16, std::size_t sourceLength);

}  // namespace tallow::pipe
