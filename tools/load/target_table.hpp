// The table that a load fills.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "load/odbc.hpp"

namespace tallow::load {

// A table that exists: how statements spell it, and its columns in their order.
struct TargetTable {
  std::string sqlName;
  std::vector<std::string> columns;
};

// None if the database shows no such table. Ends the transaction.
std::optional<TargetTable> findTable(Connection& connection, const std::string& table);

// Makes the table with these columns of long text, if it does not exist. Ends the transaction.
// Throws ToolError with the database's words if it cannot be made.
TargetTable createTable(Connection& connection, const std::string& table,
                        const std::vector<std::string>& columns);

// The table's own spelling of the wanted columns. A different case is accepted if only one column
// can be meant. Throws ToolError if a column is missing or named twice.
std::vector<std::string> matchColumns(const std::vector<std::string>& wanted,
                                      const TargetTable& table);

std::uint64_t countRows(Connection& connection, const TargetTable& table);

}  // namespace tallow::load
