#include "diag/command_line.hpp"

#include <algorithm>

namespace tallow::diag {

namespace {

void dropLeading(std::string_view& text, const char* characters) {
  text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

}  // namespace

std::string firstWord(std::string_view commandLine) {
  dropLeading(commandLine, " \t\n\v\f\r");
  const bool quoted = commandLine.starts_with('"');
  if (quoted) dropLeading(commandLine, "\"");
  return std::string(commandLine.substr(0, commandLine.find_first_of(quoted ? "\"" : ", \t\n")));
}

}  // namespace tallow::diag
