#include "diag/log.hpp"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "diag/command_line.hpp"
#include "diag/language_library.hpp"
#include "diag/messages.hpp"
#include "diag/repeat_filter.hpp"
#include "resources/version.h"

namespace tallow::diag {

int detail::currentLogLevel = 0;

namespace {

constexpr std::size_t kTimeSize = 256;
constexpr std::size_t kWordSize = 64;
constexpr std::size_t kLineSize = kTimeSize + kWordSize + RepeatFilter::kTextSize + 32;

// Trivially destructible, so that a process that ends without unloading the module touches none of
// it.
struct LogState {
  char path[MAX_PATH];
  char levelWords[kHighestLogLevel + 2][kWordSize];  // the last is for any other level
  char repeatFormat[RepeatFilter::kTextSize];
  RepeatFilter filter;
};
constinit LogState state = {};

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};
using LogFile = std::unique_ptr<std::FILE, FileCloser>;

// The raw text of a message, cut to the size of text.
template <std::size_t size>
void loadText(MessageId id, char (&text)[size]) noexcept {
  if (LoadStringA(languageLibrary(), static_cast<UINT>(id), text, static_cast<int>(size)) <= 0) {
    text[0] = '\0';
  }
}

// Texts that every line or summary needs, loaded once per set-up.
void loadFixedTexts() noexcept {
  static_assert(static_cast<int>(MessageId::kLevelOther) ==
                static_cast<int>(MessageId::kLevel0) + kHighestLogLevel + 1);
  for (int level = 0; level <= kHighestLogLevel + 1; ++level) {
    loadText(static_cast<MessageId>(static_cast<int>(MessageId::kLevel0) + level),
             state.levelWords[level]);
  }
  loadText(MessageId::kRepeatSummary, state.repeatFormat);
}

const char* levelWord(LogLevel level) {
  const int number = static_cast<int>(level);
  return state
      .levelWords[number >= 0 && number <= kHighestLogLevel ? number : kHighestLogLevel + 1];
}

void formatTime(char (&text)[kTimeSize]) {
  const std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  if (local == nullptr || std::strftime(text, kTimeSize, "%a %b %d %H:%M:%S %Y", local) == 0) {
    text[0] = '\0';
  }
}

// Formats a line without checks of the format: that of the summary is a message text.
std::size_t formatLine(char (&line)[kLineSize], const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t length = formatCut(line, kLineSize, format, arguments);
  va_end(arguments);
  return length;
}

// Writes the bytes and flushes them, so that each line reaches the file in one piece.
bool writeOut(std::FILE* file, const char* text, std::size_t length) {
  return std::fwrite(text, 1, length, file) == length && std::fflush(file) == 0;
}

int writeText(LogLevel level, MessageId id, const char* text, std::size_t length) {
  const LogFile file(std::fopen(state.path, "a"));
  if (!file) return 0;

  char time[kTimeSize];
  formatTime(time);
  const int process = static_cast<int>(GetCurrentProcessId());
  const char* word = levelWord(level);
  char line[kLineSize];

  const RepeatFilter::Decision decision = state.filter.next({text, length});
  if (decision.summaryCount != 0) {
    // The interface requires the current line's level word here, not that of the repeated line.
    std::size_t summary =
        formatLine(line, state.repeatFormat, time, process, word, decision.summaryCount);
    if (summary == kLineSize - 1) --summary;
    line[summary++] = '\n';
    writeOut(file.get(), line, summary);
  }
  if (!decision.writeLine) return 0;
  const std::size_t written =
      formatLine(line, "%s %d %s %d %s\n", time, process, word, static_cast<int>(id), text);
  return writeOut(file.get(), line, written) ? static_cast<int>(written) : 0;
}

// The directory of the log file; null if no log is to be set up.
const char* chooseDirectory(const char* given) {
  if (given != nullptr && *given != '\0') return given;
  const char* variable = std::getenv("NPLOGDIR");
  if (variable != nullptr && *variable != '\0') return variable;
  if (detail::currentLogLevel == 0) return nullptr;
  variable = std::getenv("TEMP");
  return variable != nullptr && *variable != '\0' ? variable : "c:\\";
}

}  // namespace

int log(LogLevel level, MessageId id, const char* format, ...) noexcept {
  if (!logEnabled(level) || format == nullptr || state.path[0] == '\0') return 0;
  char text[RepeatFilter::kTextSize];
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t length = formatCut(text, sizeof text, format, arguments);
  va_end(arguments);
  return writeText(level, id, text, length);
}

int setLogLevel(int level) {
  const int previous = detail::currentLogLevel;
  if (level >= 0 && level <= kHighestLogLevel) {
    detail::currentLogLevel = level;
  } else {
    logText(LogLevel::kSetup, MessageId::kTrace,
            message<MessageId::kBadLogLevelSet>(level).c_str());
  }
  return previous;
}

void setUpLog(const char* hostProgram, const char* description, const char* directory) noexcept {
  const char* chosen = chooseDirectory(directory);
  if (chosen == nullptr) return;
  if (std::snprintf(state.path, sizeof state.path, "%s\\%s", chosen, "namedpipes.log") < 0) {
    state.path[sizeof state.path - 1] = '\0';
  }
  if (detail::currentLogLevel == 0) detail::currentLogLevel = static_cast<int>(LogLevel::kError);
  loadFixedTexts();

  const auto level = static_cast<LogLevel>(detail::currentLogLevel);
  logMessage<MessageId::kBannerModule>(level, TALLOW_VERSION, TALLOW_COPYRIGHT);
  logMessage<MessageId::kBannerJob>(level, hostProgram, description,
                                    static_cast<const char*>(state.path), detail::currentLogLevel);
}

std::string hostProgramName() {
  return firstWord(GetCommandLineA());
}

}  // namespace tallow::diag
