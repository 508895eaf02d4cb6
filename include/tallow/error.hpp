// The exception that a host gets when the module does not carry out a request.
#pragma once

#include <tallow/tallow.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace tallow {

// "Read" for pmiPIDMOptRead, and so on. A text of static lifetime.
inline const char* requestName(std::uint32_t request) noexcept {
  switch (request) {
    case pmiPIDMOptInit:
      return "Init";
    case pmiPIDMOptOpen:
      return "Open";
    case pmiPIDMOptClose:
      return "Close";
    case pmiPIDMOptRead:
      return "Read";
    case pmiPIDMOptWrite:
      return "Write";
    case pmiPIDMOptGetPos:
      return "GetPos";
    case pmiPIDMOptSetPos:
      return "SetPos";
    case pmiPIDMOptShut:
      return "Shut";
    case pmiPIDMOptID:
      return "ID";
    case pmiPIDMOptCloseR:
      return "CloseR";
    case pmiPIDMOptGetA_A:
    case pmiPIDMOptGetF_A:
    case pmiPIDMOptPutA_A:
    case pmiPIDMOptPutF_A:
      return "Attribute";
    default:
      return "unknown request";
  }
}

// The module answered a request with a code other than success. All texts are in the code page of
// the process, as the module gives them.
class Error : public std::runtime_error {
 public:
  // `moduleText` is the text that came with the code; empty if none did.
  Error(std::uint32_t request, std::uint32_t code, const std::string& moduleText)
      : std::runtime_error(describe(request, code, moduleText)),
        request_(request),
        code_(code),
        text_(textOf(code, moduleText)) {}

  std::uint32_t request() const noexcept { return request_; }  // pmiPIDMOpt…
  std::uint32_t code() const noexcept { return code_; }        // pmrc…
  const char* name() const noexcept { return tallow_code_name(code_); }
  // The module's own text; for a code that comes without one, the text of tallow_code_text. It has
  // no line break at its end.
  const std::string& text() const noexcept { return text_; }

 private:
  // A reason of the system brings a line break of its own.
  static std::string textOf(std::uint32_t code, const std::string& moduleText) {
    if (moduleText.empty()) return tallow_code_text(code);
    return moduleText.substr(0, moduleText.find_last_not_of(" \r\n") + 1);
  }
  static std::string describe(std::uint32_t request, std::uint32_t code,
                              const std::string& moduleText) {
    return std::string(requestName(request)) + " failed with " + tallow_code_name(code) + " (" +
           std::to_string(code) + "): " + textOf(code, moduleText);
  }

  std::uint32_t request_;
  std::uint32_t code_;
  std::string text_;
};

}  // namespace tallow
