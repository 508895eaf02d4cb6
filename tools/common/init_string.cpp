#include "common/init_string.hpp"

#include <stdexcept>

#include "common/unknown_argument.hpp"
#include "config/option_tokens.hpp"
#include "text/ascii.hpp"

namespace tallow::tools {
namespace {

using config::DirectoryState;
using config::OptionId;
using config::Options;
using config::OptionSetting;
using config::OptionVerdict;

std::string canonicalName(std::string_view keyword) {
  for (const config::OptionName& name : config::optionNames()) {
    if (text::equalIgnoringCase(keyword, name.keyword) ||
        text::equalIgnoringCase(keyword, name.shortForm)) {
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
    case OptionId::kNeedFullBlock:
    case OptionId::kPipeWait:
    case OptionId::kFallbackFile:
    case OptionId::kFallbackDirectory:
    case OptionId::kLogDirectory:
    case OptionId::kNoFallback:
      break;  // they have no bad value
  }
  return {};
}

std::string signatureText(std::uint32_t mode) {
  if (mode == 0) return "re-sent data is not checked on a restart";
  if (mode == 1) return "re-sent data that differs is logged, and the restart goes on";
  return "re-sent data that differs makes the restart fail";
}

std::string fullBlockText(const OptionSetting& setting, const Options& options) {
  if (options.needFullBlock) return "every block but the last is full";
  return setting.stores
             ? "a block is what one read of the pipe yields; a job cannot be restarted"
             : "changes nothing: once switched off, only leaving the option out switches it on";
}

std::string noFallbackText(std::string_view ignoredValue) {
  std::string text = "no fallback file; a job cannot be restarted";
  if (ignoredValue.empty()) return text;
  return text + "; takes no value, so \"" + std::string(ignoredValue) + "\" is ignored";
}

// What a good option does.
std::string goodText(const OptionSetting& setting, std::string_view value, const Options& options) {
  const std::string number = std::to_string(setting.number);
  switch (setting.id) {
    case OptionId::kNeedFullBlock:
      return fullBlockText(setting, options);
    case OptionId::kPipeWait:
      return "looks at an empty pipe at least every " + number + " ms";
    case OptionId::kBlockSize:
      return "blocks of " + number + (setting.number == 1 ? " byte" : " bytes");
    case OptionId::kFallbackFile:
      return "names the fallback file; one pipe at a time";
    case OptionId::kFallbackDirectory:
      return "folder of the fallback file";
    case OptionId::kConfirmFallbackDeletion:
      return "changes nothing: the fallback file is deleted without a question either way";
    case OptionId::kSignatureCheck:
      return signatureText(setting.number);
    case OptionId::kLogDirectory:
      return "folder of the log file namedpipes.log";
    case OptionId::kLogLevel:
      return setting.number == 0 ? "no log" : "logs everything up to level " + number;
    case OptionId::kNoFallback:
      return noFallbackText(value);
  }
  return {};
}

// What is wrong with a folder. Empty if nothing is.
std::string folderFault(const std::string& folder, DirectoryLook look) {
  if (look == nullptr) return {};
  switch (look(folder)) {
    case DirectoryState::kUsable:
      return {};
    case DirectoryState::kNotWritable:
      return "cannot be written to; check its permissions or name another folder";
    case DirectoryState::kNoDirectory:
      break;
  }
  if (folder.ends_with('\\') || folder.ends_with('/')) {
    return std::string("is not taken as a folder; leave out the ") + folder.back() + " at its end";
  }
  return "is not a folder; create it or name another";
}

bool namesAFolder(std::string_view fileName) {
  return fileName == "." || fileName == ".." ||
         fileName.find_first_of("/\\:") != std::string_view::npos;
}

void explainGood(ExplainedOption& option, const OptionSetting& setting, const Options& options) {
  option.taken = option.good = true;
  option.text = goodText(setting, option.value, options);
  if (setting.id == OptionId::kFallbackFile && namesAFolder(option.value)) {
    option.good = false;
    option.text = "must be a file's name without a folder; name that with Fallback_Directory";
  }
}

ExplainedOption explain(std::string_view keyword, std::string_view value, Options& options,
                        DirectoryLook look) {
  ExplainedOption option{
      std::string(keyword), std::string(value), canonicalName(keyword), false, false, {}};
  const OptionSetting setting = config::readOption(keyword, value);
  if (config::namesDirectory(setting)) {
    option.text = folderFault(option.value, look);
    if (!option.text.empty()) return option;
  }
  config::applySetting(options, setting, option.value);
  switch (setting.verdict) {
    case OptionVerdict::kGood:
      explainGood(option, setting, options);
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

InitStringReport explainInitString(std::string_view text, DirectoryLook look) {
  InitStringReport report;
  text = text.substr(0, text.find('\0'));  // The module reads up to the first NUL.
  config::OptionTokens tokens(text);
  try {
    while (tokens.next()) {
      report.options.push_back(explain(tokens.keyword(), tokens.value(), report.effective, look));
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
