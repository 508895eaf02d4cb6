// The module's error exception.
#pragma once

#include <stdexcept>
#include <string>

#include "resources/message_ids.hpp"

namespace tallow::diag {

// A numbered message on its way to the host. PIDMMain logs it and turns it into return code 34,
// unless a return code is already set.
class CErrMsgException : public std::runtime_error {
 public:
  CErrMsgException(MessageId id, const std::string& text) : std::runtime_error(text), id_(id) {}

  MessageId id() const noexcept { return id_; }

 private:
  MessageId id_;
};

}  // namespace tallow::diag
