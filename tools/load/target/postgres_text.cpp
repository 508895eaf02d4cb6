#include "load/target/postgres_text.hpp"

#include <algorithm>
#include <charconv>

#include "load/target/sql_text.hpp"

namespace tallow::load {
namespace {

constexpr std::string_view kDigits = "0123456789";

// The most bytes between the table's name and the number: ", línea " and its like.
constexpr std::size_t kMostBetween = 40;

bool takePrefix(std::string_view& text, std::string_view prefix) {
  if (!text.starts_with(prefix)) return false;
  text.remove_prefix(prefix.size());
  return true;
}

std::optional<std::uint64_t> rowInLine(std::string_view line, std::string_view table) {
  takePrefix(line, "COPY ");
  if (!takePrefix(line, table)) return std::nullopt;
  const std::size_t begin = line.find_first_of(kDigits);
  if (begin == 0 || begin > kMostBetween) return std::nullopt;
  std::uint64_t row = 0;
  const auto [end, error] = std::from_chars(line.data() + begin, line.data() + line.size(), row);
  if (error != std::errc() || row == 0) return std::nullopt;
  return row;
}

}  // namespace

bool namesPostgres(std::string_view connection) noexcept {
  return connection.starts_with("postgresql://") || connection.starts_with("postgres://");
}

std::string numberedParameters(std::string_view sql) {
  std::string text;
  char quote = '\0';
  int count = 0;
  for (const char c : sql) {
    if (c == '?' && quote == '\0') {
      text += '$' + std::to_string(++count);
      continue;
    }
    if (quote == '\0' && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == quote) {
      quote = '\0';
    }
    text += c;
  }
  return text;
}

std::optional<std::uint64_t> rowOfCopy(std::string_view context, std::string_view table) {
  std::optional<std::uint64_t> found;
  while (!context.empty()) {
    const std::size_t end = std::min(context.find('\n'), context.size());
    const std::optional<std::uint64_t> row = rowInLine(context.substr(0, end), table);
    if (row && found && *row != *found) return std::nullopt;
    if (row) found = row;
    context.remove_prefix(std::min(end + 1, context.size()));
  }
  return found;
}

std::string nameInContext(std::string_view sqlName) {
  NamePart part = parseTableName(sqlName).back();
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  if (!part.quoted) std::ranges::transform(part.text, part.text.begin(), lower);
  return part.text;
}

bool isWrongSetting(std::string_view message) {
  return message.starts_with("invalid ") || message.starts_with("could not match ") ||
         message.find("invalid when SSL support") != std::string_view::npos ||
         message.starts_with("definition of service ");
}

std::string oneLine(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  std::string line(text);
  std::ranges::replace_if(line, [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
  return line;
}

}  // namespace tallow::load
