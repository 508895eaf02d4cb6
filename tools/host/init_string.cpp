#include "host/init_string.hpp"

#include <algorithm>
#include <stdexcept>

#include "config/option_tokens.hpp"

namespace tallow::host {
namespace {

using config::OptionId;
using config::OptionSetting;
using config::OptionVerdict;

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// Edits that turn one word into the other, letter case aside.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      const std::size_t replaced = diagonal + (lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1);
      row[j] = std::min({above + 1, row[j - 1] + 1, replaced});
      diagonal = above;
    }
  }
  return row[b.size()];
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

/// Stores a good option and says what it does.
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

ExplainedOption explain(std::string_view keyword, std::string_view value,
                        EffectiveOptions& options) {
  ExplainedOption option{
      std::string(keyword), std::string(value), canonicalName(keyword), false, {}};
  const OptionSetting setting = config::readOption(keyword, value);
  switch (setting.verdict) {
    case OptionVerdict::kGood:
      option.good = true;
      option.text = apply(setting, option.value, options);
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
                                      [](const auto& option) { return option.good; });
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
  const std::size_t limit = std::max<std::size_t>(1, keyword.size() / 3);
  std::size_t best = limit + 1;
  std::string_view nearest;
  for (const config::OptionName& name : config::optionNames()) {
    // A word cut short is near too: "Block" is meant for "Block_size".
    const bool begins = keyword.size() >= 3 && keyword.size() < name.keyword.size() &&
                        sameWord(keyword, name.keyword.substr(0, keyword.size()));
    const auto [shorter, longer] = std::minmax({keyword.size(), name.keyword.size()});
    if (!begins && longer - shorter >= best) continue;  // so many edits at least
    const std::size_t score = begins ? 1 : distance(keyword, name.keyword);
    if (score < best) {
      best = score;
      nearest = name.keyword;
    }
  }
  return std::string(nearest);
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

}  // namespace tallow::host
