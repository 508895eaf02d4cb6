// The way to PostgreSQL through libpq: COPY.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "load/target/database.hpp"

namespace tallow::load {

struct PostgresDestination {
  std::string address;    // postgresql://... or postgres://..., with all that libpq knows
  std::string libpqFile;  // empty if only the program's own folder may have the library
  std::string
      clientName;  // the application name, if neither the address nor the environment has one
  std::chrono::milliseconds longestWait{30000};  // of a statement, for a lock
  // Called with each text that the server sends as a notice, once for each.
  std::function<void(const std::string& text)> onNotice;
};

// Connects. Throws DatabaseError; MisuseError for an address that libpq can't read and if there is
// no libpq; ToolError if the server is too old.
std::unique_ptr<Database> connectByLibpq(const PostgresDestination& destination);

}  // namespace tallow::load
