// Formats a message and a log line: each is bounded and is the beginning of the whole text.
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "diag/bounded_format.hpp"
#include "fuzz_target.hpp"

namespace {

using namespace tallow;
using fuzz::require;

std::string growing(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::string text = diag::formatGrowing(format, arguments);
  va_end(arguments);
  return text;
}

std::string cut(std::size_t room, const char* format, ...) {
  std::vector<char> buffer(room, '#');
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t length = diag::formatCut(buffer.data(), room, format, arguments);
  va_end(arguments);
  require(length < room && std::strlen(buffer.data()) == length, "the cut text has its length");
  return buffer.data();
}

}  // namespace

TALLOW_FUZZ_TARGET(message_format) {
  fuzz::Input input(data, size);
  const std::size_t room = 1 + input.number(2) % 2048;
  const std::size_t repeat = 1 + input.byte();  // so that short inputs reach all buffers
  const int number = static_cast<int>(input.number(4));
  const std::string first(input.text(input.byte()));
  std::string second;
  const std::string_view rest = input.rest();
  for (std::size_t i = 0; i < repeat; ++i) second += rest;
  const char* a = first.c_str();
  const char* b = second.c_str();
  const std::string whole = std::string(a) + " (" + std::to_string(number) + "): " + b;

  const std::string grown = growing("%s (%d): %s", a, number, b);
  require(grown == whole.substr(0, diag::kLongestFormatted), "the grown text is the whole text");
  require(cut(room, "%s (%d): %s", a, number, b) == whole.substr(0, room - 1),
          "the cut text is the whole text's beginning");
  return 0;
}
