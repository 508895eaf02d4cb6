// What a module handle stands for: the options of the initialisation string and the attributes.
#pragma once

#include <string>

#include "config/options.hpp"

namespace tallow::config {

struct OptionsRecord : Options {
  std::string moduleName;  // the host's own name for the module; shown in the log

  // Attributes.
  std::string charsetName;
  bool preserveRestartInfo = false;
  bool timeoutEnabled = false;
  double timeoutSeconds = 1.0;
};

// True if pipe names are UTF-8, as they are with both character sets, and may need the wide calls.
inline bool isWideNameCharset(const OptionsRecord& options) {
  return options.charsetName == "UTF8" || options.charsetName == "UTF16";
}

}  // namespace tallow::config
