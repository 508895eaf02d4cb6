// Explains an initialisation string with the module's own parser, without loading the module.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config/option_setting.hpp"

namespace tallow::tools {

// One option of the string.
struct ExplainedOption {
  std::string keyword;    // as written
  std::string value;      // as written, without quotes
  std::string canonical;  // the option's full name; empty if there is no such option
  bool taken = false;     // Init accepts it
  bool good = false;      // and it does what it is meant to do
  std::string text;  // what the option does, or what is wrong with it and what to write instead
};

// The values that the options result in. Paths are as written.
struct EffectiveOptions {
  bool needFullBlock = true;
  std::uint32_t pipeWait = 10;         // milliseconds
  std::uint32_t blockSize = 1U << 20;  // bytes
  std::uint32_t signatureCheck = 2;
  std::uint32_t logLevel = 0;
  bool noFallback = false;
  std::string fallbackFile;
  std::string fallbackDirectory;
  std::string logDirectory;
};

struct InitStringReport {
  std::vector<ExplainedOption> options;
  EffectiveOptions effective;
  std::string ending;         // what is wrong with the end of the string; empty if nothing is
  bool endsTheParse = false;  // the ending makes Init fail (a missing quote), not only lose text

  // Whether Init accepts the string, as far as this can be known without access to the disk.
  bool accepted() const noexcept;
  // The first complaint, in one line. Empty if there is none.
  std::string firstComplaint() const;
};

InitStringReport explainInitString(std::string_view text);

// The option name that is nearest to a mistyped keyword. Empty if none is near.
std::string nearestOption(std::string_view keyword);

}  // namespace tallow::tools
