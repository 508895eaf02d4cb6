#include "diag/bounded_format.hpp"

#include <cstdio>

namespace tallow::diag {
namespace {

// Formats at most count characters; buffer holds count + 1 bytes. Negative if the text does not
// fit; the buffer then holds its beginning. On Windows this is the run-time library's own
// formatter, since texts and trace lines use its conversions (%I64u).
int formatCount(char* buffer, std::size_t count, const char* format, std::va_list arguments) {
#if defined(_WIN32)
  return _vsnprintf(buffer, count, format, arguments);
#else
  const int length = std::vsnprintf(buffer, count + 1, format, arguments);
  return length < 0 || static_cast<std::size_t>(length) > count ? -1 : length;
#endif
}

}  // namespace

std::size_t formatCut(char* buffer, std::size_t size, const char* format, std::va_list arguments) {
  const std::size_t room = size - 1;
  buffer[0] = '\0';
  const int length = formatCount(buffer, room, format, arguments);
  buffer[room] = '\0';
  return length >= 0 ? static_cast<std::size_t>(length) : std::char_traits<char>::length(buffer);
}

std::string formatGrowing(const char* format, std::va_list arguments) {
  constexpr std::size_t kFirst = 256;
  constexpr std::size_t kSecond = 512;
  constexpr std::size_t kGrowth = 2048;

  char fixed[kSecond];
  for (const std::size_t size : {kFirst, kSecond}) {
    std::va_list copy;
    va_copy(copy, arguments);
    const int length = formatCount(fixed, size - 1, format, copy);
    va_end(copy);
    if (length >= 0) return std::string(fixed, static_cast<std::size_t>(length));
  }

  std::string text;
  for (std::size_t size = kSecond + kGrowth; size <= kLongestFormatted; size += kGrowth) {
    text.assign(size, '\0');
    std::va_list copy;
    va_copy(copy, arguments);
    const int length = formatCount(text.data(), size, format, copy);
    va_end(copy);
    if (length >= 0) {
      text.resize(static_cast<std::size_t>(length));
      return text;
    }
  }
  text.resize(std::char_traits<char>::length(text.c_str()));
  return text;
}

}  // namespace tallow::diag
