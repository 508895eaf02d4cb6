// The first part of the record that a module handle points to: the options of the initialisation
// string, the attributes, and what a read with a time-out leaves there.
#pragma once

#include <cstdint>
#include <string>

#include "diag/failure_report.hpp"

namespace tallow::config {

inline constexpr std::uint64_t kDefaultBlockSize = 0x100000;
inline constexpr std::uint64_t kLargestBlockSize = 0x1000000;

struct OptionsRecord {
  diag::MessageArea messageArea = {};

  std::string moduleName;  // the host's own name for the module; shown in the log

  std::string logDirectory;
  std::uint32_t logLevel = 0;
  std::string fallbackFile;
  std::string fallbackDirectory;
  // Close asks before it deletes the fallback file. The interface requires that no option can set
  // this.
  bool confirmFallbackDeletion = false;
  std::int32_t signatureCheck = 2;  // 0 = none, 1 = a mismatch is logged, 2 = a mismatch fails
  std::uint64_t blockSize = kDefaultBlockSize;  // bytes
  std::uint64_t pipeWait = 10;                  // longest pause between two reads, milliseconds
  bool needFullBlock = true;
  bool noFallback = false;

  // Attributes.
  std::string charsetName;
  bool preserveRestartInfo = false;
  bool timeoutEnabled = false;
  double timeoutSeconds = 1.0;

  // Set by the latest read of available data while a time-out was set.
  bool timedOut = false;           // it did not fill a block, for whatever reason
  std::int64_t readStartTime = 0;  // calendar time, seconds
};

// True if pipe names are UTF-8, as they are with both character sets, and may need the wide calls.
inline bool isWideNameCharset(const OptionsRecord& options) {
  return options.charsetName == "UTF8" || options.charsetName == "UTF16";
}

}  // namespace tallow::config
