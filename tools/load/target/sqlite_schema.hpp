// What an SQLite file says of its tables.
#pragma once

#include <string>
#include <vector>

#include "load/target/database.hpp"
#include "load/target/sqlite_connection.hpp"

namespace tallow::load {

// `sqlName` is the table's name as statements spell it.
bool sqliteHasTriggers(const SqliteConnection& connection, const std::string& sqlName);

// The columns that have INTEGER affinity.
std::vector<std::string> sqliteIntegerColumns(const SqliteConnection& connection,
                                              const std::string& sqlName);

// Throws ToolError with what to do if rows can't be inserted into the table and these of its
// columns: a view, a virtual table, a generated column.
void requireSqliteTable(const SqliteConnection& connection, const TargetTable& table,
                        const std::vector<std::string>& columns);

}  // namespace tallow::load
