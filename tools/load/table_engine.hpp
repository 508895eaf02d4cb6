// Checks the engine of a table, in databases that have several.
#pragma once

#include <string>

#include "load/odbc.hpp"

namespace tallow::load {

// Throws ToolError if the engine of the table has no transactions, because rows could then come
// twice. `sqlName` is the name as statements spell it. Ends the transaction.
void requireTransactions(Connection& connection, const std::string& sqlName);

}  // namespace tallow::load
