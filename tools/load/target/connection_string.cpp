#include "load/target/connection_string.hpp"

#include <algorithm>
#include <cstdlib>

namespace tallow::load {
namespace {

// The bit of OPTION that asks the drivers of MySQL and MariaDB to connect again.
constexpr long long kReconnectOption = 1LL << 22U;

char capital(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string inCapitals(std::string_view text) {
  std::string capitals(text);
  std::ranges::transform(capitals, capitals.begin(), capital);
  return capitals;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
  text.remove_prefix(begin);
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Removes a value from the beginning of the text, with the semicolon after it, and returns it.
std::string takeValue(std::string_view& text) {
  const std::size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos || text[begin] != '{') {
    const std::size_t end = std::min(text.find(';'), text.size());
    std::string value(trimmed(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
    return value;
  }
  std::string value;
  std::size_t at = begin + 1;
  for (; at < text.size(); ++at) {
    const bool doubled = text[at] == '}' && at + 1 < text.size() && text[at + 1] == '}';
    if (text[at] == '}' && !doubled) break;
    value += text[at];
    if (doubled) ++at;
  }
  const std::size_t end = text.find(';', std::min(at, text.size()));
  text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
  return value;
}

bool isOff(const std::string& value) {
  const std::string text = inCapitals(value);
  return text.empty() || text == "0" || text == "NO" || text == "OFF" || text == "FALSE";
}

}  // namespace

std::vector<ConnectionAttribute> connectionAttributes(std::string_view text) {
  std::vector<ConnectionAttribute> attributes;
  while (!text.empty()) {
    const std::size_t end = text.find_first_of("=;");
    if (end == std::string_view::npos) break;
    const std::string key = inCapitals(trimmed(text.substr(0, end)));
    const bool hasValue = text[end] == '=';
    text.remove_prefix(end + 1);
    if (hasValue) attributes.push_back({key, takeValue(text)});
  }
  return attributes;
}

bool asksToReconnect(std::string_view text) {
  for (const ConnectionAttribute& attribute : connectionAttributes(text)) {
    if ((attribute.key == "AUTO_RECONNECT" || attribute.key == "AUTORECONNECT") &&
        !isOff(attribute.value)) {
      return true;
    }
    const bool isOption = attribute.key == "OPTION" || attribute.key == "OPTIONS";
    if (isOption && (std::strtoll(attribute.value.c_str(), nullptr, 0) & kReconnectOption) != 0) {
      return true;
    }
  }
  return false;
}

bool asksForNoTransactions(std::string_view text) {
  return std::ranges::any_of(connectionAttributes(text), [](const ConnectionAttribute& attribute) {
    return attribute.key == "NOTXN" && !isOff(attribute.value);
  });
}

std::string withLockLimit(const std::string& text, std::chrono::milliseconds limit) {
  if (!namesSqlite(text)) return text;
  long long milliseconds = limit.count();
  for (const ConnectionAttribute& attribute : connectionAttributes(text)) {
    if (attribute.key != "TIMEOUT" || attribute.value.empty()) continue;
    const long long own = std::strtoll(attribute.value.c_str(), nullptr, 10);
    milliseconds = std::clamp(own, 0LL, milliseconds);
  }
  return "Timeout=" + std::to_string(milliseconds) + ";" + text;  // The first one counts.
}

bool namesSqlite(std::string_view text) {
  return std::ranges::any_of(connectionAttributes(text), [](const ConnectionAttribute& attribute) {
    return attribute.key == "DRIVER" &&
           inCapitals(attribute.value).find("SQLITE") != std::string::npos;
  });
}

}  // namespace tallow::load
