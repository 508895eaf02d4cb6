// The host program's name, from any command line.
#include <string>

#include "diag/command_line.hpp"
#include "fuzz_target.hpp"

TALLOW_FUZZ_TARGET(command_line) {
  using tallow::fuzz::require;
  const std::string line(reinterpret_cast<const char*>(data), size);
  const std::string word = tallow::diag::firstWord(line);

  std::size_t begin = 0;
  while (begin < line.size() &&
         std::string_view(" \t\n\v\f\r").find(line[begin]) != std::string::npos)
    ++begin;
  const bool quoted = begin < line.size() && line[begin] == '"';
  while (quoted && begin < line.size() && line[begin] == '"') ++begin;
  std::size_t end = begin;
  const std::string_view stops = quoted ? "\"" : ", \t\n";
  while (end < line.size() && stops.find(line[end]) == std::string_view::npos) ++end;
  require(word == line.substr(begin, end - begin), "the word is what stands between its limits");
  return 0;
}
