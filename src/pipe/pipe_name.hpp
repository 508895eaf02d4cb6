// What a pipe name shows without asking the system.
#pragma once

#include <string_view>

namespace tallow::pipe {

inline constexpr std::string_view kPipePrefix = R"(\\.\pipe\)";

// True if the name begins with the prefix, byte for byte. Nothing need follow it.
bool isPipeName(std::string_view name);

// True if UTF-16LE bytes, converted from sourceLength bytes of UTF-8, are plain ASCII.
bool isAsciiUtf16(std::string_view utf16, std::size_t sourceLength);

}  // namespace tallow::pipe
