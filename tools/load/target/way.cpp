#include "load/target/way.hpp"

#include "common/tool_error.hpp"
#include "load/target/connection_string.hpp"
#include "load/target/odbc_database.hpp"

namespace tallow::load {
namespace {

bool namesSqliteFile(std::string_view connection) {
  return connection.starts_with("sqlite:");
}

bool namesPostgres(std::string_view connection) {
  return connection.starts_with("postgresql://") || connection.starts_with("postgres://");
}

}  // namespace

DatabaseFactory wayTo(const Destination& destination) {
  if (namesSqliteFile(destination.connection) || namesPostgres(destination.connection)) {
    throw tools::MisuseError(
        "this program does not know that kind of address; give an ODBC connection string");
  }
  return [destination] { return connectByOdbc(destination.connection, destination.longestWait); };
}

bool isEmbedded(std::string_view connection) {
  return namesSqliteFile(connection) || namesSqlite(connection);
}

}  // namespace tallow::load
