#include "load/target/target_table.hpp"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>

#include "common/tool_error.hpp"
#include "load/target/sql_text.hpp"

namespace tallow::load {
namespace {

using tools::ToolError;

std::optional<std::vector<std::string>> columnsOf(Database& database, const std::string& sqlName) {
  std::optional<std::vector<std::string>> columns;
  try {
    columns = database.execute("SELECT * FROM " + sqlName + " WHERE 1 = 0").columns;
  } catch (const DatabaseError& error) {
    if (error.fault() == Fault::kLost) throw;
  }
  database.rollback();
  return columns;
}

bool sameButForCase(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::ranges::equal(a, b, {}, lower, lower);
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

const std::string& matchColumn(const std::string& name, const TargetTable& table) {
  const auto exact = std::ranges::find(table.columns, name);
  if (exact != table.columns.end()) return *exact;
  const auto alike = [&](const std::string& column) { return sameButForCase(column, name); };
  const auto found = std::ranges::find_if(table.columns, alike);
  if (found == table.columns.end() ||
      std::find_if(found + 1, table.columns.end(), alike) != table.columns.end()) {
    throw ToolError("the table " + table.sqlName + " has no column \"" + name + "\"; it has " +
                    joined(table.columns));
  }
  return *found;
}

}  // namespace

std::optional<TargetTable> findTable(Database& database, const std::string& table) {
  for (const Quoting quoting : {Quoting::kWhereNeeded, Quoting::kAlways}) {
    const std::string sqlName = tableName(table, database.traits().quote, quoting);
    if (auto columns = columnsOf(database, sqlName)) return TargetTable{sqlName, *columns};
  }
  return std::nullopt;
}

TargetTable createTable(Database& database, const std::string& table,
                        const std::vector<std::string>& columns) {
  std::string reason;
  for (const Quoting quoting : {Quoting::kWhereNeeded, Quoting::kAlways}) {
    if (std::optional<TargetTable> found = findTable(database, table)) return *found;
    std::vector<std::string> names;
    for (const std::string& column : columns) {
      const bool bare = quoting == Quoting::kWhereNeeded && isPlainName(column);
      names.push_back(bare ? column : quoteName(column, database.traits().quote));
    }
    try {
      database.execute(createStatement(tableName(table, database.traits().quote, quoting), names,
                                       database.traits().textType));
      database.commit();
    } catch (const DatabaseError& error) {
      // The error matters only if the table does not exist afterwards. Another load may have made
      // it.
      reason = error.what();
      database.rollback();
    }
  }
  if (std::optional<TargetTable> found = findTable(database, table)) return *found;
  throw ToolError("the table " + table + " cannot be created: " + reason);
}

std::vector<std::string> matchColumns(const std::vector<std::string>& wanted,
                                      const TargetTable& table) {
  std::vector<std::string> matched;
  for (const std::string& name : wanted) {
    const std::string& column = matchColumn(name, table);
    if (std::ranges::find(matched, column) != matched.end()) {
      throw ToolError("the column \"" + column + "\" is named twice; name each column once");
    }
    matched.push_back(column);
  }
  return matched;
}

std::uint64_t countRows(Database& database, const TargetTable& table) {
  const SqlResult result = database.execute("SELECT COUNT(*) FROM " + table.sqlName);
  return wholeNumber(result.rows.at(0).at(0));
}

std::uint64_t wholeNumber(const std::optional<std::string>& value) {
  const std::string digits = value.value_or("");
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error == std::errc() && end == digits.data() + digits.size()) return number;
  throw DatabaseError({"22018", 0, "\"" + digits + "\" stands where a whole number belongs"},
                      Fault::kPermanent);
}

}  // namespace tallow::load
