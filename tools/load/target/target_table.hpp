// The table that a load fills.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "load/target/database.hpp"

namespace tallow::load {

// None if the database shows no such table. Ends the transaction.
std::optional<TargetTable> findTable(Database& database, const std::string& table);

// Makes the table with these columns of long text, if it does not exist. Ends the transaction.
// Throws ToolError with the database's words if it cannot be made.
TargetTable createTable(Database& database, const std::string& table,
                        const std::vector<std::string>& columns);

// The table's own spelling of the wanted columns. A different case is accepted if only one column
// can be meant. Throws ToolError if a column is missing or named twice.
std::vector<std::string> matchColumns(const std::vector<std::string>& wanted,
                                      const TargetTable& table);

std::uint64_t countRows(Database& database, const TargetTable& table);

// The value as a whole number. Throws DatabaseError if it is none, or negative.
std::uint64_t wholeNumber(const std::optional<std::string>& value);

}  // namespace tallow::load
