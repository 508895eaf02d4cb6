// The module's log as tests compare it: by level, id and, for id 9999, exact text.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace tallow::test {

constexpr int kTraceId = 9999;

struct LogLine {
  std::string time;  // as "Sat Nov 21 10:31:38 2026"
  unsigned process = 0;
  int level = 0;  // 7 for the level word of any other level
  int id = 0;     // 78 for a repeat summary, whose text is everything after the level word
  std::string text;
};

// What tests compare: a line without the text of a numbered message, which depends on the language.
struct LogEntry {
  int level = 0;
  int id = 0;
  std::string trace;  // the text of a 9999 line, else empty
  bool operator==(const LogEntry&) const = default;
};
std::ostream& operator<<(std::ostream& out, const LogEntry& entry);

// One text of the English language library; empty for an id without one.
std::string messageText(int id);

// The same, formatted with arguments of the types that the message takes.
std::string formattedMessage(int id, ...);

// The system's text for one of its error numbers.
std::string systemText(unsigned long error);

// All lines of namedpipes.log in `directory`; none if there is no such file. A message of several
// lines is one entry. Throws std::runtime_error if the file is not a log.
std::vector<LogLine> readLog(const std::string& directory);

std::vector<LogEntry> entriesOf(const std::vector<LogLine>& lines);

// The log of one directory, read piece by piece.
class LogReader {
 public:
  explicit LogReader(std::string directory) : directory_(std::move(directory)) {}

  // The lines since the last call.
  std::vector<LogLine> newLines();
  std::vector<LogEntry> newEntries() { return entriesOf(newLines()); }

 private:
  std::string directory_;
  std::size_t seen_ = 0;
};

inline LogEntry trace(int level, std::string text) {
  return {level, kTraceId, std::move(text)};
}
inline LogEntry message(int level, int id) {
  return {level, id, {}};
}
// The line with which every request begins.
LogEntry requestLine(const std::string& name, int code);

}  // namespace tallow::test
