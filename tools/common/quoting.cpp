#include "common/quoting.hpp"

namespace tallow::tools {
namespace {

bool needsQuotes(const std::string& argument) {
  return argument.empty() || argument.find_first_of(" \t\"&|<>^;,()") != std::string::npos;
}

}  // namespace

std::string quotedArgument(const std::string& argument) {
  if (!needsQuotes(argument)) return argument;
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

}  // namespace tallow::tools
