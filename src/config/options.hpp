// The ten options of the initialisation string: their defaults, and what a setting leaves of them.
#pragma once

#include <cstdint>
#include <string>

#include "config/option_setting.hpp"

namespace tallow::config {

inline constexpr std::uint64_t kDefaultBlockSize = 0x100000;
inline constexpr std::uint64_t kLargestBlockSize = 0x1000000;

struct Options {
  std::string logDirectory;
  std::uint32_t logLevel = 0;
  std::string fallbackFile;
  std::string fallbackDirectory;
  // Close asks before it deletes the fallback file. The interface requires that no option can set
  // this.
  bool confirmFallbackDeletion = false;
  std::uint32_t signatureCheck = 2;  // 0 = none, 1 = a mismatch is logged, 2 = a mismatch fails
  std::uint64_t blockSize = kDefaultBlockSize;  // bytes
  std::uint64_t pipeWait = 10;                  // longest pause between two reads, milliseconds
  bool needFullBlock = true;
  bool noFallback = false;
};

// Stores what the setting of one option says. A bad value may set its field too: to a value that
// is safe. A directory must have been found usable.
void applySetting(Options& options, const OptionSetting& setting, const std::string& value);

}  // namespace tallow::config
