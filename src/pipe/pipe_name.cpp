#include "pipe/pipe_name.hpp"

namespace tallow::pipe {

bool isPipeName(std::string_view name) {
  return name.starts_with(kPipePrefix);
}

bool isAsciiUtf16(std::string_view utf16, std::size_t sourceLength) {
  if (utf16.size() != 2 * sourceLength) return false;
  for (std::size_t i = 1; i < utf16.size(); i += 2) {
    if (utf16[i] != '\0') return false;
  }
  return true;
}

}  // namespace tallow::pipe
