// The module's log file "namedpipes.log".
//
// The file is opened, appended to and closed again for every line, so that several processes can
// share it and nothing is lost when one dies. A failure to log never makes a request fail. Nothing
// here guards against a second thread, since the module is called from one.
#pragma once

#include <string>

#include "diag/bounded_format.hpp"
#include "resources/message_ids.hpp"

namespace tallow::diag {

enum class LogLevel : int {
  kAlways = 0,
  kSetup = 1,     // trouble and warnings at set-up
  kError = 2,     // errors
  kWarning = 3,   // warnings
  kPosition = 4,  // positioning and recovery events
  kOption = 5,    // notes on options
  kTrace = 6      // every request, every block
};

inline constexpr int kHighestLogLevel = 6;

namespace detail {
extern int currentLogLevel;
}

// True if lines of this level are logged.
inline bool logEnabled(LogLevel level) noexcept {
  return static_cast<int>(level) <= detail::currentLogLevel;
}

// Appends one line; a text of more than 1023 characters is cut. Returns the number of characters
// written: 0 if the level is off, the text repeats the last one or the file cannot be written.
int log(LogLevel level, MessageId id, const char* format, ...) noexcept TALLOW_PRINTF(3, 4);

// Returns the previous level. Takes 0 to 6; any other value changes nothing and is logged with
// kBadLogLevelSet.
int setLogLevel(int level);

// Chooses the log file: in the given directory (null or empty: none), else in that of NPLOGDIR,
// else, unless the level is 0, in that of TEMP or in "c:\". If a file was chosen, raises level 0 to
// 2 and writes the two banner lines. If not, everything stays as it was.
void setUpLog(const char* hostProgram, const char* description, const char* directory) noexcept;

// The first word of the process's command line.
std::string hostProgramName();

}  // namespace tallow::diag
