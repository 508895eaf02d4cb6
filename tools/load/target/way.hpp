// Which way leads to the database that a connection string names.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "load/target/database.hpp"

namespace tallow::load {

// A database, and how to be its client.
struct Destination {
  std::string connection;  // what --to says
  // How long the database lets a statement wait for a lock.
  std::chrono::milliseconds longestWait{30000};
  std::string clientName;  // by which the server's list of connections shows the load
  std::string libpqFile;   // PostgreSQL's client library; empty if nobody has named one
  // Called with each text that the server sends as a notice, once for each. May be empty.
  std::function<void(const std::string& text)> onNotice;
};

// sqlite:FILE is opened in this process, postgresql:// and postgres:// through libpq, and anything
// else is an ODBC connection string. Does not connect yet. Throws MisuseError if there is no such
// way.
DatabaseFactory wayTo(const Destination& destination);

// Whether the database works inside this process, on the thread that calls it.
bool isEmbedded(std::string_view connection);

}  // namespace tallow::load
