#include "common/quoting.hpp"

#include <algorithm>
#include <cstring>

namespace tallow::tools {
namespace {

// Whether both shells take the character as it is. They do so with everything above ASCII.
bool isPlain(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         static_cast<unsigned char>(c) >= 0x80 || std::strchr("-_./:\\+", c) != nullptr;
}

bool needsQuotes(const std::string& argument) {
  return argument.empty() || !std::ranges::all_of(argument, isPlain);
}

// For cmd each quote begins or ends a quoted part, whatever is before it, and cmd looks for
// variables inside such a part too.
bool misleadsCmd(const std::string& argument) {
  return argument.find('"') != std::string::npos || std::ranges::count(argument, '%') > 1;
}

// With the carets, cmd passes on every character as it is.
std::string withCarets(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (std::strchr("\"%^&|<>()!", c) != nullptr) escaped += '^';
    escaped += c;
  }
  return escaped;
}

}  // namespace

std::string inDoubleQuotes(const std::string& argument) {
  std::string text = "\"";
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '\\') {
      ++backslashes;
    } else {
      if (c == '"') text.append(backslashes + 1, '\\');
      backslashes = 0;
    }
    text += c;
  }
  text.append(backslashes, '\\');
  return text + "\"";
}

std::string quotedArgument(const std::string& argument) {
  if (!needsQuotes(argument)) return argument;
  const std::string text = inDoubleQuotes(argument);
  return misleadsCmd(argument) ? withCarets(text) : text;
}

}  // namespace tallow::tools
