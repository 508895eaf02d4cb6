#include "support/log_reader.hpp"

#include <windows.h>

#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

constexpr std::size_t kTimeLength = 24;
constexpr int kFirstLevelWord = 64;
constexpr int kLevelWords = 8;
constexpr int kRepeatSummaryId = 78;

bool startsWithTime(std::string_view line) {
  // "Sat Nov 21 10:31:38 2026 "
  constexpr std::string_view kShape = "aaa aaa 00 00:00:00 0000 ";
  if (line.size() < kShape.size()) return false;
  for (std::size_t i = 0; i < kShape.size(); ++i) {
    const char c = line[i];
    if (kShape[i] == 'a'   ? !std::isalpha(static_cast<unsigned char>(c))
        : kShape[i] == '0' ? !std::isdigit(static_cast<unsigned char>(c))
                           : c != kShape[i]) {
      return false;
    }
  }
  return true;
}

// Removes a number and a blank, as "123 ", from the front of `rest`; -1 if there is none.
int takeNumber(std::string_view& rest) {
  int number = -1;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (error != std::errc{} || end == rest.data() + rest.size() || *end != ' ') return -1;
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()) + 1);
  return number;
}

int takeLevelWord(std::string_view& rest) {
  int level = -1;
  std::size_t longest = 0;
  for (int i = 0; i < kLevelWords; ++i) {
    const std::string word = messageText(kFirstLevelWord + i) + ' ';
    if (word.size() > longest && rest.starts_with(word)) {
      level = i;
      longest = word.size();
    }
  }
  rest.remove_prefix(longest);
  return level;
}

LogLine parseLine(std::string_view line) {
  LogLine result;
  result.time = line.substr(0, kTimeLength);
  std::string_view rest = line.substr(kTimeLength + 1);
  const int process = takeNumber(rest);
  result.level = takeLevelWord(rest);
  if (process < 0 || result.level < 0)
    throw std::runtime_error("no log line: " + std::string(line));
  result.process = static_cast<unsigned>(process);
  result.id = takeNumber(rest);
  if (result.id < 0) result.id = kRepeatSummaryId;
  result.text = rest;
  return result;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const LogEntry& entry) {
  return out << "{level " << entry.level << ", id " << entry.id << ", \"" << entry.trace << "\"}";
}

std::string messageText(int id) {
  static const HMODULE library = LoadLibraryExA((programDirectory() + "\\tallowinenu.dll").c_str(),
                                                nullptr, LOAD_LIBRARY_AS_DATAFILE);
  if (library == nullptr) throw std::runtime_error("no tallowinenu.dll beside the test program");
  std::array<char, 4096> text{};
  LoadStringA(library, static_cast<UINT>(id), text.data(), static_cast<int>(text.size()));
  return text.data();
}

std::string formattedMessage(int id, ...) {
  const std::string format = messageText(id);
  std::string text(1 << 17, '\0');
  std::va_list arguments;
  va_start(arguments, id);
  const int length = std::vsnprintf(text.data(), text.size(), format.c_str(), arguments);
  va_end(arguments);
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string systemText(unsigned long error) {
  std::array<char, 512> text{};
  FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0, text.data(),
                 static_cast<DWORD>(text.size()), nullptr);
  return text.data();
}

std::vector<LogLine> readLog(const std::string& directory) {
  std::ifstream file(directory + "\\namedpipes.log");  // text mode: CR LF becomes LF
  std::stringstream whole;
  whole << file.rdbuf();
  std::vector<std::string> texts;
  for (std::string line; std::getline(whole, line);) {
    if (startsWithTime(line)) {
      texts.push_back(line);
    } else if (!texts.empty()) {
      texts.back() += '\n' + line;
    } else {
      throw std::runtime_error("no log line: " + line);
    }
  }
  std::vector<LogLine> lines;
  for (const std::string& text : texts) lines.push_back(parseLine(text));
  return lines;
}

std::vector<LogEntry> entriesOf(const std::vector<LogLine>& lines) {
  std::vector<LogEntry> entries;
  for (const LogLine& line : lines) {
    entries.push_back({line.level, line.id, line.id == kTraceId ? line.text : std::string()});
  }
  return entries;
}

std::vector<LogLine> LogReader::newLines() {
  std::vector<LogLine> lines = readLog(directory_);
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen_));
  seen_ += lines.size();
  return lines;
}

LogEntry requestLine(const std::string& name, int code) {
  return trace(6, "Request Received: " + name + " (" + std::to_string(code) + ")");
}

}  // namespace tallow::test
