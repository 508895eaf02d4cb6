#include "load/target/sql_text.hpp"

#include <algorithm>
#include <bit>
#include <utility>

#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

// Wine 10's driver manager takes 1,024 parameters, the smallest limit in use.
constexpr std::size_t kMostParameters = 1000;
constexpr std::size_t kMostRows = 100;
constexpr std::size_t kMostParts = 4;

std::string join(const std::vector<std::string>& parts, std::string_view suffix = {}) {
  std::string text;
  for (const std::string& part : parts) {
    if (!text.empty()) text += ", ";
    text += part;
    text += suffix;
  }
  return text;
}

bool isBlank(std::string_view quote) {
  return quote.empty() || quote == " ";
}

// Removes a part in quotes from the beginning of `rest` and returns it. Empty if it is not closed.
NamePart takeQuoted(std::string_view& rest, char close) {
  NamePart part{{}, true};
  for (std::size_t i = 1; i < rest.size(); ++i) {
    const bool doubled =
        rest[i] == close && close != ']' && rest.substr(i + 1, 1) == rest.substr(i, 1);
    if (rest[i] == close && !doubled) {
      rest.remove_prefix(i + 1);
      return part;
    }
    part.text += rest[i];
    if (doubled) ++i;
  }
  return {};
}

// Removes a part from the beginning of `rest`, up to a dot or a quote, and returns it.
NamePart takePart(std::string_view& rest) {
  const char first = rest.empty() ? '\0' : rest.front();
  if (first == '"' || first == '`') return takeQuoted(rest, first);
  if (first == '[') return takeQuoted(rest, ']');
  const std::size_t end = std::min(rest.find_first_of(".\"`[]'"), rest.size());
  NamePart part{std::string(rest.substr(0, end)), false};
  rest.remove_prefix(end);
  return part;
}

}  // namespace

bool isPlainName(std::string_view name) {
  const auto isLetter = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
  };
  const auto isLetterOrDigit = [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); };
  return !name.empty() && isLetter(name.front()) && std::ranges::all_of(name, isLetterOrDigit);
}

std::string quoteName(std::string_view name, std::string_view quote) {
  if (isBlank(quote) && isPlainName(name)) return std::string(name);
  if (isBlank(quote) || name.find('\0') != std::string_view::npos) {
    throw tools::ToolError("the database cannot spell the name \"" + std::string(name) +
                           "\"; use a name of letters, digits and underscores");
  }
  std::string text(quote);
  for (const char c : name) {
    text += c;
    if (quote == std::string_view(&c, 1)) text += c;
  }
  return text += quote;
}

std::vector<NamePart> parseTableName(std::string_view table) {
  std::vector<NamePart> parts;
  std::string_view rest = table;
  for (;;) {
    NamePart part = takePart(rest);
    const bool ends = rest.empty();
    if (part.text.empty() || (!ends && rest.front() != '.') || parts.size() == kMostParts) {
      throw tools::MisuseError("--table " + std::string(table) +
                               " is no name of a table; write NAME or SCHEMA.NAME, and what holds "
                               "dots or quotes in quotes");
    }
    parts.push_back(std::move(part));
    if (ends) return parts;
    rest.remove_prefix(1);
  }
}

std::string tableName(std::string_view table, std::string_view quote, Quoting quoting) {
  std::string text;
  for (const NamePart& part : parseTableName(table)) {
    const bool bare = !part.quoted && quoting == Quoting::kWhereNeeded && isPlainName(part.text);
    if (!text.empty()) text += '.';
    text += bare ? part.text : quoteName(part.text, quote);
  }
  return text;
}

std::string insertStatement(const std::string& table, const std::vector<std::string>& quotedColumns,
                            std::size_t rows) {
  std::string values = "(?";
  for (std::size_t i = 1; i < quotedColumns.size(); ++i) values += ",?";
  values += ')';
  std::string text = "INSERT INTO " + table + " (" + join(quotedColumns) + ") VALUES " + values;
  for (std::size_t i = 1; i < rows; ++i) text += "," + values;
  return text;
}

std::string createStatement(const std::string& table, const std::vector<std::string>& quotedColumns,
                            const std::string& type) {
  return "CREATE TABLE " + table + " (" + join(quotedColumns, " " + type) + ")";
}

std::size_t defaultBatch(std::size_t columns) {
  return std::clamp<std::size_t>(kMostParameters / std::max<std::size_t>(columns, 1), 1, kMostRows);
}

std::size_t pieceOf(std::size_t rows) {
  return std::bit_floor(rows);
}

}  // namespace tallow::load
