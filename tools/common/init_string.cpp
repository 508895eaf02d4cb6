#include "common/init_string.hpp"

#include <algorithm>
#include <stdexcept>

#include "common/unknown_argument.hpp"
#include "config/option_tokens.hpp"

namespace tallow::tools {
namespace {

using config::OptionId;
using config::OptionSetting;
using config::OptionVerdict;

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool sameWord(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

std::string canonicalName(std::string_view keyword) {
  for (const config::OptionName& name : config::optionNames()) {
    if (sameWord(keyword, name.keyword) || sameWord(keyword, name.shortForm)) {
      return std::string(name.keyword);
    }
  }
  return {};
}

std::string badValueText(OptionId id) {
  switch (id) {
    case OptionId::kBlockSize:
      return "must be a whole number of bytes from 1 to 16777216";
    case OptionId::kConfirmFallbackDeletion:
      return "must be yes or no";
    case OptionId::kSignatureCheck:
      return "must be 0, 1 or 2";
    case OptionId::kLogLevel:
      return "must be a whole number from 0 to 6";
    default:
      return "is not a value of this option";
  }
}

std::string signatureText(std::uint32_t mode) {
  if (mode == 0) return "re-sent data is not checked on a restart";
  if (mode == 1) return "re-sent data that differs is logged, and the restart goes on";
  return "re-sent data that differs makes the restart fail";
}

// Stores a good option and says what it does.
std::string apply(const OptionSetting& setting, const std::string& value,
                  EffectiveOptions& options) {
  const std::string number = std::to_string(setting.number);
  switch (setting.id) {
    case OptionId::kNeedFullBlock:
      if (setting.stores) options.needFullBlock = setting.number != 0;
      if (!setting.stores && !options.needFullBlock) {
        return "changes nothing: once switched off, only leaving the option out switches it on";
      }
      return options.needFullBlock ? "every block but the last is full"
                                   : "a block is what one read of the pipe yields; a job cannot "
                                     "be restarted";
    case OptionId::kPipeWait:
      options.pipeWait = setting.number;
      return "looks at an empty pipe at least every " + number + " ms";
    case OptionId::kBlockSize:
      options.blockSize = setting.number;
      return "blocks of " + number + (setting.number == 1 ? " byte" : " bytes");
    case OptionId::kFallbackFile:
      options.fallbackFile = value;
      return "names the fallback file; one pipe at a time";
    case OptionId::kFallbackDirectory:
      options.fallbackDirectory = value;
      return "folder of the fallback file";
    case OptionId::kConfirmFallbackDeletion:
      return "changes nothing: the fallback file is deleted without a question either way";
    case OptionId::kSignatureCheck:
      options.signatureCheck = setting.number;
      return signatureText(setting.number);
    case OptionId::kLogDirectory:
      options.logDirectory = value;
      return "folder of the log file namedpipes.log";
    case OptionId::kLogLevel:
      options.logLevel = setting.number;
      return setting.number == 0 ? "no log" : "logs everything up to level " + number;
    case OptionId::kNoFallback:
      options.noFallback = true;
      return value.empty() ? "no fallback file; a job cannot be restarted"
                           : "no fallback file; a job cannot be restarted; takes no value, so \"" +
                                 value + "\" is ignored";
  }
  return {};
}

bool namesAFolder(std::string_view fileName) {
  return fileName == "." || fileName == ".." ||
         fileName.find_first_of("/\\:") != std::string_view::npos;
}

ExplainedOption explain(std::string_view keyword, std::string_view value,
                        EffectiveOptions& options) {
  ExplainedOption option{
      std::string(keyword), std::string(value), canonicalName(keyword), false, false, {}};
  const OptionSetting setting = config::readOption(keyword, value);
  switch (setting.verdict) {
    case OptionVerdict::kGood:
      option.taken = option.good = true;
      option.text = apply(setting, option.value, options);
      if (setting.id == OptionId::kFallbackFile && namesAFolder(value)) {
        option.good = false;
        option.text = "must be a file's name without a folder; name that with Fallback_Directory";
      }
      break;
    case OptionVerdict::kEmptyValue:
      option.text = "has no value";
      break;
    case OptionVerdict::kUnknownKeyword:
      option.text = "is not an option";
      break;
    case OptionVerdict::kBadValue:
      option.text = badValueText(setting.id);
      break;
  }
  if (option.canonical.empty()) {
    const std::string nearest = nearestOption(keyword);
    if (!nearest.empty()) option.text += "; did you mean " + nearest + "?";
  }
  return option;
}

}  // namespace

bool InitStringReport::accepted() const noexcept {
  return !endsTheParse && std::all_of(options.begin(), options.end(),
                                      [](const auto& option) { return option.taken; });
}

std::string InitStringReport::firstComplaint() const {
  for (const ExplainedOption& option : options) {
    if (option.good) continue;
    std::string text = "\"" + option.keyword;
    if (!option.value.empty() && !option.canonical.empty()) text += "=" + option.value;
    return text + "\" " + option.text;
  }
  return ending;
}

std::string nearestOption(std::string_view keyword) {
  std::vector<std::string> names;
  for (const config::OptionName& name : config::optionNames()) names.emplace_back(name.keyword);
  return tools::nearestName(keyword, names);
}

InitStringReport explainInitString(std::string_view text) {
  InitStringReport report;
  text = text.substr(0, text.find('\0'));  // The module reads up to the first NUL.
  config::OptionTokens tokens(text);
  try {
    while (tokens.next()) {
      report.options.push_back(explain(tokens.keyword(), tokens.value(), report.effective));
    }
    const auto used = static_cast<std::size_t>(tokens.keyword().data() - text.data());
    if (used < text.size()) {
      report.ending = "\"" + std::string(text.substr(used)) +
                      "\" is ignored: an option cannot begin with \"=\"";
    }
  } catch (const std::out_of_range&) {
    report.endsTheParse = true;
    report.ending = "the value of " + std::string(tokens.keyword()) + " has no closing quote";
  }
  return report;
}

}  // namespace tallow::tools
