// The module's error exception.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "resources/message_ids.hpp"

namespace tallow::diag {

// A numbered message on its way to the host, with the return code of the request that it ends.
// PIDMMain logs it and sets the return code. If it carries none and none is set yet, that is 34 and
// the host gets the text as well.
class CErrMsgException : public std::runtime_error {
 public:
  CErrMsgException(MessageId id, const std::string& text) : std::runtime_error(text), id_(id) {}

  MessageId id() const noexcept { return id_; }
  std::uint32_t returnCode() const noexcept { return returnCode_; }  // 0: none
  void setReturnCode(std::uint32_t code) noexcept { returnCode_ = code; }

 private:
  MessageId id_;
  std::uint32_t returnCode_ = 0;
};

}  // namespace tallow::diag
