#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "entry/handlers.hpp"

namespace tallow::entry {
namespace {

using diag::LogLevel;

// The name up to its NUL, or the whole field if it has none.
std::string attributeName(const TallowAttributeBlock& block) {
  const char* end =
      std::find(block.attributeName, block.attributeName + TALLOW_ATTRIBUTE_NAME_SIZE, '\0');
  return std::string(block.attributeName, end);
}

void logAccepted(const std::string& name) {
  diag::log(LogLevel::kTrace, MessageId::kTrace,
            "Attribute name: '%s' accepted - no action required", name.c_str());
}

void setTimeout(config::OptionsRecord& options, const char* value) {
  const auto seconds = static_cast<double>(std::atol(value));
  options.timeoutSeconds = seconds != 0.0 ? seconds : 1.0;
  options.timeoutEnabled = true;
}

}  // namespace

void handleAttribute(ModuleRecord* module, TallowRequestBlock& request,
                     const TallowAttributeBlock& block) {
  if (module == nullptr) {
    diag::logMessage<MessageId::kNoModuleHandle>(LogLevel::kError);
    request.returnCode = pmrcBadAttribute;
  }
  const std::string name = attributeName(block);
  if (name == "CHARSET_NUMBER" || name == "WRITE_BOM" || name == "BYTE_ORDER") {
    logAccepted(name);
  } else if (name == "CHARSET_NAME") {
    if (request.requestCode != pmiPIDMOptPutA_A) {
      logAccepted(name);
    } else if (module != nullptr) {
      module->options.charsetName = block.attributeValue;
    }
  } else if (name == "PRESERVE_RESTART_INFO") {
    // Here and below, a Get stores the value just as a Put does. The interface requires this.
    if (module != nullptr) {
      module->options.preserveRestartInfo = std::string_view(block.attributeValue) == "YES";
    }
  } else if (name == "TIMEOUT_SECONDS") {
    if (module != nullptr) setTimeout(module->options, block.attributeValue);
  } else {
    diag::log(LogLevel::kError, MessageId::kTrace, "Attribute name: '%s' unknown", name.c_str());
    request.returnCode = pmrcBadAttribute;
  }
}

}  // namespace tallow::entry
