#include "config/option_setting.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <optional>

#include "config/options.hpp"
#include "text/ascii.hpp"

namespace tallow::config {
namespace {

constexpr std::array kOptionNames = {
    OptionName{OptionId::kNeedFullBlock, "Need_Full_Block", "nfb"},
    OptionName{OptionId::kPipeWait, "Pipe_Wait", "pw"},
    OptionName{OptionId::kBlockSize, "Block_size", "b"},
    OptionName{OptionId::kFallbackFile, "Fallback_file", "Ff"},
    OptionName{OptionId::kFallbackDirectory, "Fallback_Directory", "FD"},
    OptionName{OptionId::kConfirmFallbackDeletion, "Confirm_fallback_deletion", "Cfd"},
    OptionName{OptionId::kSignatureCheck, "Signature_check", "Sc"},
    OptionName{OptionId::kLogDirectory, "Log_directory", "Ld"},
    OptionName{OptionId::kLogLevel, "Log_level", "Ll"},
    OptionName{OptionId::kNoFallback, "No_FallBack", "nf"},
};

constexpr std::uint32_t kLongestPipeWait = 600;  // milliseconds
constexpr std::uint32_t kHighestSignatureCheck = 2;
constexpr std::uint32_t kHighestLogLevel = 6;

using text::equalIgnoringCase;

bool isOneOf(std::string_view value, std::initializer_list<std::string_view> words) {
  return std::any_of(words.begin(), words.end(),
                     [value](std::string_view word) { return equalIgnoringCase(value, word); });
}

std::optional<OptionId> findOption(std::string_view keyword) {
  for (const OptionName& name : kOptionNames) {
    if (equalIgnoringCase(keyword, name.keyword) || equalIgnoringCase(keyword, name.shortForm)) {
      return name.id;
    }
  }
  return std::nullopt;
}

OptionSetting good(OptionId id, std::uint32_t number = 0) {
  return {OptionVerdict::kGood, id, number, true};
}

OptionSetting wholeNumber(OptionId id, std::string_view value, std::uint32_t lowest,
                          std::uint32_t highest) {
  const ParsedNumber number = parseNumber(std::string(value));
  if (!number.whole || number.value < lowest || number.value > highest) {
    return {OptionVerdict::kBadValue, id, 0, false};
  }
  return good(id, number.value);
}

OptionSetting pipeWait(std::string_view value) {
  const std::uint32_t wait = parseNumber(std::string(value)).value;
  return good(OptionId::kPipeWait, wait > kLongestPipeWait ? 1 : wait);
}

OptionSetting judge(OptionId id, std::string_view value) {
  switch (id) {
    case OptionId::kNeedFullBlock:
      // Only "no" stores anything: a later "yes" does not undo it.
      return {OptionVerdict::kGood, id, 0, isOneOf(value, {"no", "n"})};
    case OptionId::kPipeWait:
      return pipeWait(value);
    case OptionId::kBlockSize:
      return wholeNumber(id, value, 1, static_cast<std::uint32_t>(kLargestBlockSize));
    case OptionId::kConfirmFallbackDeletion:
      // All four words store 0, even "yes". The interface requires this: no option can make Close
      // ask.
      if (isOneOf(value, {"yes", "y", "no", "n"})) return good(id, 0);
      return {OptionVerdict::kBadValue, id, 0, false};
    case OptionId::kSignatureCheck:
      return wholeNumber(id, value, 0, kHighestSignatureCheck);
    case OptionId::kLogLevel:
      return wholeNumber(id, value, 0, kHighestLogLevel);
    case OptionId::kNoFallback:
      return good(id, 1);
    case OptionId::kFallbackFile:
    case OptionId::kFallbackDirectory:
    case OptionId::kLogDirectory:
      break;
  }
  return good(id);
}

}  // namespace

std::span<const OptionName> optionNames() noexcept {
  return kOptionNames;
}

OptionSetting readOption(std::string_view keyword, std::string_view value) {
  const std::optional<OptionId> id = findOption(keyword);
  if (value.empty() && id != OptionId::kNoFallback) {
    return {OptionVerdict::kEmptyValue, {}, 0, false};
  }
  if (!id) return {OptionVerdict::kUnknownKeyword, {}, 0, false};
  return judge(*id, value);
}

bool namesDirectory(const OptionSetting& setting) noexcept {
  return setting.verdict == OptionVerdict::kGood &&
         (setting.id == OptionId::kFallbackDirectory || setting.id == OptionId::kLogDirectory);
}

ParsedNumber parseNumber(const std::string& text) {
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint32_t>::max();
  const std::size_t first = text.find_first_not_of(" \t\n\v\f\r");
  const bool negative = first != std::string::npos && text[first] == '-';
  char* end = nullptr;
  errno = 0;
  const std::uint64_t wide = std::strtoull(text.c_str(), &end, 10);
  const bool whole = end == text.c_str() + text.size();
  const std::uint64_t magnitude = negative ? 0 - wide : wide;
  if (errno == ERANGE || magnitude > kLargest) return {static_cast<std::uint32_t>(kLargest), whole};
  return {static_cast<std::uint32_t>(wide), whole};
}

}  // namespace tallow::config
