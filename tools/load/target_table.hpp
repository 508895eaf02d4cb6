// The table that a load fills.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "load/odbc.hpp"

namespace tallow::load {

/// A table that is there: how statements spell it, and its columns in their order.
struct TargetTable {
  std::string sqlName;
  std::vector<std::string> columns;
};

/// Nothing when the database shows no such table. Ends the transaction.
std::optional<TargetTable> findTable(Connection& connection, const std::string& table);

/// The table, made with these columns of long text unless it is there already. Ends the
/// transaction. Throws ToolError with the database's words when it cannot be made.
TargetTable createTable(Connection& connection, const std::string& table,
                        const std::vector<std::string>& columns);

/// The table's own spelling of the wanted columns; a case that differs is forgiven where only one
/// column can be meant. Throws ToolError for one that is missing or named twice.
std::vector<std::string> matchColumns(const std::vector<std::string>& wanted,
                                      const TargetTable& table);

std::uint64_t countRows(Connection& connection, const TargetTable& table);

}  // namespace tallow::load
