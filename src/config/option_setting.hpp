// What one keyword and value of the initialisation string mean.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tallow::config {

enum class OptionId {
  kNeedFullBlock,
  kPipeWait,
  kBlockSize,
  kFallbackFile,
  kFallbackDirectory,
  kConfirmFallbackDeletion,
  kSignatureCheck,
  kLogDirectory,
  kLogLevel,
  kNoFallback
};

struct OptionName {
  OptionId id;
  std::string_view keyword;
  std::string_view shortForm;
};

// Every option, in the order in which keywords are compared.
std::span<const OptionName> optionNames() noexcept;

enum class OptionVerdict {
  kGood,            // a directory has still to be looked at: see namesDirectory
  kEmptyValue,      // the keyword, known or not, has no value
  kUnknownKeyword,  // no such option
  kBadValue         // out of range or not a number
};

struct OptionSetting {
  OptionVerdict verdict;
  OptionId id;           // only with kGood and kBadValue
  std::uint32_t number;  // the value to store, of numeric options and flags, with kGood
  bool stores;           // false: a good value that leaves the field as it is
};

// Judges one option, from its arguments alone.
OptionSetting readOption(std::string_view keyword, std::string_view value);

// True if the value is good only if it is a directory that can be written to.
bool namesDirectory(const OptionSetting& setting) noexcept;

// An unsigned decimal number as the run-time library's 32-bit conversion reads it: leading blanks
// and a sign are accepted (a negative number wraps round), overflow gives the largest 32-bit value,
// and a text without digits gives 0.
struct ParsedNumber {
  std::uint32_t value;
  bool whole;  // the conversion consumed the text to its end
};
ParsedNumber parseNumber(const std::string& text);

}  // namespace tallow::config
