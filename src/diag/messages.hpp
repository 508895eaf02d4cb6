// The numbered messages: texts of the language library, formatted with their arguments.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

#include "diag/error.hpp"
#include "diag/log.hpp"
#include "resources/message_ids.hpp"

namespace tallow::diag {

// Puts the raw text of a message into text. False, with an empty text, if the language library
// lacks it.
bool loadMessage(MessageId id, std::string& text);

// Formats the text of a message without checking the types of the arguments; use message() instead.
std::string formatLoadedMessage(MessageId id, ...);

namespace detail {

template <class Argument>
constexpr char argumentLetter() {
  if (std::is_same_v<Argument, const char*> || std::is_same_v<Argument, char*>) return 's';
  if (std::is_same_v<Argument, int>) return 'd';
  if (std::is_same_v<Argument, unsigned> || std::is_same_v<Argument, unsigned long>) return 'u';
  if (std::is_same_v<Argument, double>) return 'f';
  return '?';
}

template <class... Arguments>
constexpr bool matches(std::string_view letters) {
  constexpr char given[] = {argumentLetter<Arguments>()..., '\0'};
  return letters == given;
}

}  // namespace detail

// The formatted text of a message; empty if the language library lacks it. The argument types are
// checked against the message table.
template <MessageId id, class... Arguments>
std::string message(Arguments... arguments) {
  static_assert(detail::matches<Arguments...>(messageArguments(id)),
                "arguments differ from messages.def");
  return formatLoadedMessage(id, arguments...);
}

// Raises the module's error exception with a formatted message.
template <MessageId id, class... Arguments>
[[noreturn]] void raise(Arguments... arguments) {
  throw CErrMsgException(id, message<id>(arguments...));
}

// The same with a return code. If memory runs out during the formatting, the exception that is
// raised instead carries the code too.
template <MessageId id, class... Arguments>
[[noreturn]] void raiseWithCode(std::uint32_t returnCode, Arguments... arguments) {
  try {
    raise<id>(arguments...);
  } catch (CErrMsgException& failure) {
    failure.setReturnCode(returnCode);
    throw;
  }
}

// Logs a text as it is, percent signs included.
inline void logText(LogLevel level, MessageId id, const char* text) noexcept {
  log(level, id, "%s", text);
}

// Logs a formatted message; formats nothing if the level is off. What comes after a log line must
// not depend on it, so if memory runs out during the formatting, the line has only its number.
template <MessageId id, class... Arguments>
void logMessage(LogLevel level, Arguments... arguments) noexcept {
  if (!logEnabled(level)) return;
  try {
    logText(level, id, message<id>(arguments...).c_str());
  } catch (...) {
    logText(level, id, "");
  }
}

// The system's description of a GetLastError number, which messages quote, with its line break at
// the end. Raises kNoSystemErrorText with that number if the system has none.
std::string systemErrorText(unsigned long error);

// The same for the calling thread's last error.
std::string lastSystemErrorText();

}  // namespace tallow::diag
