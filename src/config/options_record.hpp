// The first part of the record behind a module handle: the options of the initialisation string,
// the attributes, and what a read with a time-out leaves there.
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
  // Close asks before it deletes the fallback file. No option can set it: deliberate.
  bool confirmFallbackDeletion = false;
  std::int32_t signatureCheck = 2;  // 0 = none, 1 = a mismatch is logged, 2 = a mismatch fails
  std::uint64_t blockSize = kDefaultBlockSize;  // bytes
  std::uint64_t pipeWait = 10;                  // longest pause between two looks, milliseconds
  bool needFullBlock = true;
  bool noFallback = false;

  // Attributes.
  std::string charsetName;
  bool preserveRestartInfo = false;
  bool timeoutEnabled = false;
  double timeoutSeconds = 1.0;

  // Left by the latest read of available data while a time-out was set.
  bool timedOut = false;           // it did not fill a block, for whatever reason
  std::int64_t readStartTime = 0;  // calendar time, seconds
};

// Whether pipe names are UTF-8, which both character sets stand for, and may need the wide calls.
inline bool isWideNameCharset(const OptionsRecord& options) {
  return options.charsetName == "UTF8" || options.charsetName == "UTF16";
}

}  // namespace tallow::config
