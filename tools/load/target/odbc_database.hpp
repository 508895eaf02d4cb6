// The way through ODBC: statements of many rows.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "load/target/database.hpp"

namespace tallow::load {

// Connects. `longestWait` is how long the database lets a statement wait for a lock. Throws
// DatabaseError, or MisuseError if the connection string asks for what would undo the guarantees of
// a load.
std::unique_ptr<Database> connectByOdbc(const std::string& connectionString,
                                        std::chrono::milliseconds longestWait);

}  // namespace tallow::load
