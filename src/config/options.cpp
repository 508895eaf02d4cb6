#include "config/options.hpp"

#include "diag/log.hpp"

namespace tallow::config {
namespace {

void applyGood(Options& options, const OptionSetting& setting, const std::string& value) {
  switch (setting.id) {
    case OptionId::kNeedFullBlock:
      if (setting.stores) options.needFullBlock = setting.number != 0;
      break;
    case OptionId::kPipeWait:
      options.pipeWait = setting.number;
      break;
    case OptionId::kBlockSize:
      options.blockSize = setting.number;
      break;
    case OptionId::kFallbackFile:
      options.fallbackFile = value;
      break;
    case OptionId::kFallbackDirectory:
      options.fallbackDirectory = value;
      break;
    case OptionId::kConfirmFallbackDeletion:
      options.confirmFallbackDeletion = setting.number != 0;
      break;
    case OptionId::kSignatureCheck:
      options.signatureCheck = setting.number;
      break;
    case OptionId::kLogDirectory:
      options.logDirectory = value;
      break;
    case OptionId::kLogLevel:
      options.logLevel = setting.number;
      break;
    case OptionId::kNoFallback:
      options.noFallback = true;
      break;
  }
}

void applyBad(Options& options, OptionId id) {
  switch (id) {
    case OptionId::kBlockSize:
      options.blockSize = kDefaultBlockSize;
      break;
    case OptionId::kSignatureCheck:
      options.signatureCheck = 0;
      break;
    case OptionId::kLogLevel:
      options.logLevel = static_cast<std::uint32_t>(diag::LogLevel::kError);
      break;
    case OptionId::kConfirmFallbackDeletion:
    case OptionId::kNeedFullBlock:
    case OptionId::kPipeWait:
    case OptionId::kFallbackFile:
    case OptionId::kFallbackDirectory:
    case OptionId::kLogDirectory:
    case OptionId::kNoFallback:
      break;
  }
}

}  // namespace

void applySetting(Options& options, const OptionSetting& setting, const std::string& value) {
  if (setting.verdict == OptionVerdict::kGood) applyGood(options, setting, value);
  if (setting.verdict == OptionVerdict::kBadValue) applyBad(options, setting.id);
}

}  // namespace tallow::config
