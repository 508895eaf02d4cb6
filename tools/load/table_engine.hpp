// What keeps a table's rows, where a database has several kinds of it.
#pragma once

#include <string>

#include "load/odbc.hpp"

namespace tallow::load {

/// Throws ToolError when the table, named as statements spell it, is kept by an engine without
/// transactions: rows could then come twice. Ends the transaction.
void requireTransactions(Connection& connection, const std::string& sqlName);

}  // namespace tallow::load
