// ODBC connection strings: key=value;key={value};...
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace tallow::load {

struct ConnectionAttribute {
  std::string key;    // in capitals, without the blanks around it
  std::string value;  // without braces and without the blanks around it
};

// The attributes in their order. What is not key=value is left out, as drivers do.
std::vector<ConnectionAttribute> connectionAttributes(std::string_view text);

// Whether the string asks the driver to connect again by itself when the connection breaks. The
// rows since the last commit would then be lost, and later rows would be inserted without a
// transaction.
bool asksToReconnect(std::string_view text);

// Whether the string asks SQLite's driver to work without transactions.
bool asksForNoTransactions(std::string_view text);

// Whether the string names a driver of SQLite.
bool namesSqlite(std::string_view text);

// For SQLite: the string with a limit for each wait for a locked file, unless it has a lower one.
// The driver's own limit is 100 seconds, which is in effect until the connection is made.
std::string withLockLimit(const std::string& text, std::chrono::milliseconds limit);

}  // namespace tallow::load
