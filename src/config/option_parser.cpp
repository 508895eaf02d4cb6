#include "config/option_parser.hpp"

#include <algorithm>
#include <cstdlib>

#include "config/directory_state.hpp"
#include "config/option_setting.hpp"
#include "config/option_tokens.hpp"
#include "diag/failure_report.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::config {
namespace {

using diag::log;
using diag::LogLevel;
using diag::message;

// Applies the options of one initialisation string and reports on each.
class OptionApplier {
 public:
  OptionApplier(OptionsRecord& options, TallowRequestBlock& request)
      : options_(options), request_(request) {}

  void apply(const std::string& keyword, const std::string& value) {
    const OptionSetting setting = readOption(keyword, value);
    if (namesDirectory(setting) && !isUsableDirectory(keyword, value)) return;
    applySetting(options_, setting, value);
    switch (setting.verdict) {
      case OptionVerdict::kEmptyValue:
        refuse<MessageId::kEmptyOption>(pmrcEmptyOption, keyword);
        break;
      case OptionVerdict::kUnknownKeyword:
        refuse<MessageId::kUnknownOption>(pmrcUnknownOption, keyword);
        break;
      case OptionVerdict::kBadValue:
        refuseValue(setting.id, keyword, value);
        break;
      case OptionVerdict::kGood:
        if (setting.id == OptionId::kLogDirectory) openLog();
        if (setting.id == OptionId::kLogLevel) useLogLevel();
        note(setting.id);
        break;
    }
  }

 private:
  void report(const std::string& text) { diag::reportFailure(request_, nullptr, text); }

  template <MessageId id>
  void refuse(std::uint32_t returnCode, const std::string& word) {
    const std::string text = message<id>(word.c_str());
    request_.returnCode = returnCode;
    diag::logText(LogLevel::kError, id, text.c_str());
  }

  template <MessageId id, typename... Words>
  void refuseAndReport(const Words&... words) {
    const std::string text = message<id>(words.c_str()...);
    report(text);
    diag::logText(LogLevel::kError, id, text.c_str());
  }

  void refuseValue(OptionId id, const std::string& keyword, const std::string& value) {
    switch (id) {
      case OptionId::kBlockSize:
        refuseAndReport<MessageId::kBadBlockSize>(value);
        break;
      case OptionId::kConfirmFallbackDeletion:
        report(message<MessageId::kBadConfirmation>(keyword.c_str(), value.c_str()));
        note(id);
        break;
      case OptionId::kSignatureCheck:
        refuse<MessageId::kBadSignatureCheck>(pmrcBadOption, value);
        break;
      case OptionId::kLogLevel:
        refuse<MessageId::kBadLogLevelOption>(pmrcBadOption, value);
        break;
      case OptionId::kNeedFullBlock:
      case OptionId::kPipeWait:
      case OptionId::kFallbackFile:
      case OptionId::kFallbackDirectory:
      case OptionId::kLogDirectory:
      case OptionId::kNoFallback:
        break;  // readOption finds no value of theirs bad
    }
  }

  bool isUsableDirectory(const std::string& keyword, const std::string& value) {
    switch (directoryState(value.c_str())) {
      case DirectoryState::kUsable:
        return true;
      case DirectoryState::kNoDirectory:
        refuseAndReport<MessageId::kNotADirectory>(keyword, value);
        break;
      case DirectoryState::kNotWritable:
        refuseAndReport<MessageId::kNotWritable>(keyword, value);
        break;
    }
    return false;
  }

  void openLog() {
    diag::setUpLog(diag::hostProgramName().c_str(), options_.moduleName.c_str(),
                   options_.logDirectory.c_str());
  }

  void useLogLevel() {
    // This comes first because it may run out of memory. If that happened after the level was set,
    // no later Init would set the log up.
    const std::string host = diag::hostProgramName();
    const int previous = diag::setLogLevel(static_cast<int>(options_.logLevel));
    if (previous == 0 && options_.logLevel != 0) {
      diag::setUpLog(host.c_str(), options_.moduleName.c_str(), nullptr);
    }
  }

  // Logs how an option stands.
  void note(OptionId id) {
    constexpr LogLevel kLevel = LogLevel::kOption;
    constexpr MessageId kId = MessageId::kTrace;
    switch (id) {
      case OptionId::kNeedFullBlock:
        log(kLevel, kId, "Full Blocks = %d", static_cast<int>(options_.needFullBlock));
        break;
      case OptionId::kPipeWait:
        log(kLevel, kId, "Pipe Read Wait = %d", static_cast<int>(options_.pipeWait));
        break;
      case OptionId::kBlockSize:
        log(kLevel, kId, "New Blocksize = %u", static_cast<unsigned>(options_.blockSize));
        break;
      case OptionId::kFallbackFile:
        log(kLevel, kId, "Fallback filename = %s", options_.fallbackFile.c_str());
        break;
      case OptionId::kFallbackDirectory:
        log(kLevel, kId, "Fallback directory = %s", options_.fallbackDirectory.c_str());
        break;
      case OptionId::kConfirmFallbackDeletion:
        log(kLevel, kId, "Confirm Fallback file delete = %d",
            static_cast<int>(options_.confirmFallbackDeletion));
        break;
      case OptionId::kSignatureCheck:
        log(kLevel, kId, "data validation check = %d", static_cast<int>(options_.signatureCheck));
        break;
      case OptionId::kLogDirectory:
        log(kLevel, kId, "Log directory = %s", options_.logDirectory.c_str());
        break;
      case OptionId::kLogLevel:
        log(kLevel, kId, "New Log Level = %d", static_cast<int>(options_.logLevel));
        break;
      case OptionId::kNoFallback:
        log(kLevel, kId, "No FallBack File");
        break;
    }
  }

  OptionsRecord& options_;
  TallowRequestBlock& request_;
};

// False if the variable names a log directory that cannot be used, which is then reported to the
// host.
bool checkLogDirectoryVariable(TallowRequestBlock& request) {
  const char* directory = std::getenv("NPLOGDIR");
  if (directory == nullptr || *directory == '\0') return true;
  if (directoryState(directory) == DirectoryState::kUsable) return true;
  diag::reportFailure(request, nullptr, message<MessageId::kBadLogDirectoryVariable>(directory));
  return false;
}

// Terminates a text in the host's buffer with a NUL and copies it.
std::string takeText(char* text, std::size_t length) {
  text[length] = '\0';
  return text;
}

}  // namespace

void parseOptions(OptionsRecord& options, TallowRequestBlock& request, TallowInitBlock& init) {
  if (!checkLogDirectoryVariable(request)) return;
  // The room for the name ends at the block's next field, whatever length the host gives.
  constexpr std::uint32_t kLongestName = TALLOW_MODULE_NAME_SIZE - 1;
  options.moduleName =
      takeText(init.moduleName, std::min(init.moduleNameLength + 0U, kLongestName));
  if (init.initString == nullptr) return;
  const std::string text = takeText(init.initString, init.initStringLength);

  OptionApplier applier(options, request);
  OptionTokens tokens(text);
  while (tokens.next()) {
    applier.apply(std::string(tokens.keyword()), std::string(tokens.value()));
  }
}

}  // namespace tallow::config
