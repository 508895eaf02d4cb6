#include "load/sql_text.hpp"

#include <algorithm>
#include <bit>

namespace tallow::load {
namespace {

/// SQL Server takes 2,100 parameters, the smallest limit in use.
constexpr std::size_t kMostParameters = 2000;
constexpr std::size_t kMostRows = 100;

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

}  // namespace

bool isPlainName(std::string_view name) {
  const auto isLetter = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
  };
  const auto isLetterOrDigit = [&](char c) { return isLetter(c) || (c >= '0' && c <= '9'); };
  return !name.empty() && isLetter(name.front()) && std::ranges::all_of(name, isLetterOrDigit);
}

std::string quoteName(std::string_view name, std::string_view quote) {
  if (isBlank(quote)) return std::string(name);
  std::string text(quote);
  for (const char c : name) {
    text += c;
    if (quote == std::string_view(&c, 1)) text += c;
  }
  return text += quote;
}

std::string tableName(std::string_view table, std::string_view quote, Quoting quoting) {
  if (!isBlank(quote) && table.find(quote) != std::string_view::npos) return std::string(table);
  std::string text;
  while (true) {
    const std::size_t dot = table.find('.');
    const std::string_view part = table.substr(0, dot);
    const bool bare = quoting == Quoting::kWhereNeeded && isPlainName(part);
    text += bare ? std::string(part) : quoteName(part, quote);
    if (dot == std::string_view::npos) return text;
    text += '.';
    table.remove_prefix(dot + 1);
  }
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
