// printf-style formatting into bounded memory.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

#if defined(_WIN32)
#define TALLOW_PRINTF(formatIndex, firstArgument) \
  __attribute__((format(ms_printf, formatIndex, firstArgument)))
#else
#define TALLOW_PRINTF(formatIndex, firstArgument) \
  __attribute__((format(printf, formatIndex, firstArgument)))
#endif

namespace tallow::diag {

// Characters of the longest text that formatGrowing returns.
inline constexpr std::size_t kLongestFormatted = 8704;

// Formats into buffer (size bytes, at least 1), cutting the text to size - 1 characters; always
// NUL-terminated. Returns the number of characters kept.
std::size_t formatCut(char* buffer, std::size_t size, const char* format, std::va_list arguments);

// Formats first into 256 bytes, then into 512, then into up to four growing buffers. A text longer
// than kLongestFormatted is cut.
std::string formatGrowing(const char* format, std::va_list arguments);

}  // namespace tallow::diag
