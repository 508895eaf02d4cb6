#include "config/option_parser.hpp"

#include <algorithm>
#include <cstdlib>

#include "config/directory_state.hpp"
#include "config/option_setting.hpp"
#include "config/option_tokens.hpp"
#include "diag/application.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::config {

namespace {

using diag::log;
using diag::LogLevel;
using diag::message;

// Applies the options of one initialisation string.
class OptionApplier {
 public:
  OptionApplier(OptionsRecord& options, TallowRequestBlock& request)
      : options_(options), request_(request) {}

  void apply(const std::string& keyword, const std::string& value) {
    const OptionSetting setting = readOption(keyword, value);
    switch (setting.verdict) {
      case OptionVerdict::kEmptyValue:
        refuse(pmrcEmptyOption, MessageId::kEmptyOption,
               message<MessageId::kEmptyOption>(keyword.c_str()));
        break;
      case OptionVerdict::kUnknownKeyword:
        refuse(pmrcUnknownOption, MessageId::kUnknownOption,
               message<MessageId::kUnknownOption>(keyword.c_str()));
        break;
      case OptionVerdict::kBadValue:
        applyBad(setting.id, keyword, value);
        break;
      case OptionVerdict::kGood:
        applyGood(setting, keyword, value);
        break;
    }
  }

 private:
  void refuse(std::uint32_t returnCode, MessageId id, const std::string& text) {
    request_.returnCode = returnCode;
    diag::logText(LogLevel::kError, id, text.c_str());
  }

  void report(const std::string& text) { diag::reportFailure(request_, nullptr, text); }

  void applyBad(OptionId id, const std::string& keyword, const std::string& value) {
    if (id == OptionId::kBlockSize) {
      const std::string text = message<MessageId::kBadBlockSize>(value.c_str());
      report(text);
      options_.blockSize = kDefaultBlockSize;
      diag::logText(LogLevel::kError, MessageId::kBadBlockSize, text.c_str());
    } else if (id == OptionId::kConfirmFallbackDeletion) {
      report(message<MessageId::kBadConfirmation>(keyword.c_str(), value.c_str()));
      noteConfirmation();
    } else if (id == OptionId::kSignatureCheck) {
      options_.signatureCheck = 0;
      refuse(pmrcBadOption, MessageId::kBadSignatureCheck,
             message<MessageId::kBadSignatureCheck>(value.c_str()));
    } else {
      options_.logLevel = static_cast<std::uint32_t>(LogLevel::kError);
      refuse(pmrcBadOption, MessageId::kBadLogLevelOption,
             message<MessageId::kBadLogLevelOption>(value.c_str()));
    }
  }

  void applyGood(const OptionSetting& setting, const std::string& keyword,
                 const std::string& value) {
    switch (setting.id) {
      case OptionId::kNeedFullBlock:
        if (setting.stores) options_.needFullBlock = setting.number != 0;
        log(LogLevel::kOption, MessageId::kTrace, "Full Blocks = %d",
            static_cast<int>(options_.needFullBlock));
        break;
      case OptionId::kPipeWait:
        options_.pipeWait = setting.number;
        log(LogLevel::kOption, MessageId::kTrace, "Pipe Read Wait = %d",
            static_cast<int>(options_.pipeWait));
        break;
      case OptionId::kBlockSize:
        options_.blockSize = setting.number;
        log(LogLevel::kOption, MessageId::kTrace, "New Blocksize = %u", setting.number);
        break;
      case OptionId::kFallbackFile:
        options_.fallbackFile = value;
        log(LogLevel::kOption, MessageId::kTrace, "Fallback filename = %s", value.c_str());
        break;
      case OptionId::kFallbackDirectory:
        if (!isUsableDirectory(keyword, value)) break;
        options_.fallbackDirectory = value;
        log(LogLevel::kOption, MessageId::kTrace, "Fallback directory = %s", value.c_str());
        break;
      case OptionId::kConfirmFallbackDeletion:
        options_.confirmFallbackDeletion = setting.number != 0;
        noteConfirmation();
        break;
      case OptionId::kSignatureCheck:
        options_.signatureCheck = static_cast<std::int32_t>(setting.number);
        log(LogLevel::kOption, MessageId::kTrace, "data validation check = %d",
            options_.signatureCheck);
        break;
      case OptionId::kLogDirectory:
        if (isUsableDirectory(keyword, value)) applyLogDirectory(value);
        break;
      case OptionId::kLogLevel:
        applyLogLevel(setting.number);
        break;
      case OptionId::kNoFallback:
        options_.noFallback = true;
        log(LogLevel::kOption, MessageId::kTrace, "No FallBack File");
        break;
    }
  }

  void noteConfirmation() {
    log(LogLevel::kOption, MessageId::kTrace, "Confirm Fallback file delete = %d",
        static_cast<int>(options_.confirmFallbackDeletion));
  }

  void applyLogDirectory(const std::string& directory) {
    options_.logDirectory = directory;
    diag::setUpLog(diag::hostProgramName().c_str(), options_.moduleName.c_str(), directory.c_str());
    log(LogLevel::kOption, MessageId::kTrace, "Log directory = %s", directory.c_str());
  }

  void applyLogLevel(std::uint32_t level) {
    options_.logLevel = level;
    // This comes first because it may run out of memory. If that happened after the level was set,
    // no later Init would set the log up.
    const std::string host = diag::hostProgramName();
    const int previous = diag::setLogLevel(static_cast<int>(level));
    if (previous == 0 && level != 0) {
      diag::setUpLog(host.c_str(), options_.moduleName.c_str(), nullptr);
    }
    log(LogLevel::kOption, MessageId::kTrace, "New Log Level = %d", static_cast<int>(level));
  }

  bool isUsableDirectory(const std::string& keyword, const std::string& value) {
    switch (directoryState(value.c_str())) {
      case DirectoryState::kUsable:
        return true;
      case DirectoryState::kNoDirectory:
        refuseDirectory<MessageId::kNotADirectory>(keyword, value);
        break;
      case DirectoryState::kNotWritable:
        refuseDirectory<MessageId::kNotWritable>(keyword, value);
        break;
    }
    return false;
  }

  template <MessageId id>
  void refuseDirectory(const std::string& keyword, const std::string& value) {
    const std::string text = message<id>(keyword.c_str(), value.c_str());
    report(text);
    diag::logText(LogLevel::kError, id, text.c_str());
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
