#include "diag/command_line.hpp"

#include "text/ascii.hpp"

namespace tallow::diag {

std::string firstWord(std::string_view commandLine) {
  text::dropLeading(commandLine, " \t\n\v\f\r");
  const bool quoted = commandLine.starts_with('"');
  if (quoted) text::dropLeading(commandLine, "\"");
  return std::string(commandLine.substr(0, commandLine.find_first_of(quoted ? "\"" : ", \t\n")));
}

}  // namespace tallow::diag
