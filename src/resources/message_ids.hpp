// The ids of the numbered messages and the types of their arguments.
#pragma once

#include <string_view>

namespace tallow {

enum class MessageId : int {
#define TALLOW_MESSAGE(id, name, arguments) name = id,
#include "resources/messages.def"
#undef TALLOW_MESSAGE
  kTrace = 9999  // free-text trace lines of the log; never loaded from the language library
};

// The argument letters of messages.def; empty for an id that takes none.
constexpr std::string_view messageArguments(MessageId id) {
  switch (id) {
#define TALLOW_MESSAGE(id, name, arguments) \
  case MessageId::name:                     \
    return arguments;
#include "resources/messages.def"
#undef TALLOW_MESSAGE
    case MessageId::kTrace:
      break;
  }
  return {};
}

}  // namespace tallow
