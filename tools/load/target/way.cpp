#include "load/target/way.hpp"

#include "common/tool_error.hpp"
#include "load/target/connection_string.hpp"
#include "load/target/odbc_database.hpp"
#include "load/target/postgres.hpp"
#include "load/target/postgres_text.hpp"

namespace tallow::load {
namespace {

bool namesSqliteFile(std::string_view connection) {
  return connection.starts_with("sqlite:");
}

}  // namespace

DatabaseFactory wayTo(const Destination& destination) {
  if (namesPostgres(destination.connection)) {
    const PostgresDestination server{destination.connection, destination.libpqFile,
                                     destination.clientName, destination.longestWait,
                                     destination.onNotice};
    return [server] { return connectByLibpq(server); };
  }
  if (namesSqliteFile(destination.connection)) {
    throw tools::MisuseError(
        "this program does not know that kind of address; give an ODBC connection string");
  }
  return [destination] { return connectByOdbc(destination.connection, destination.longestWait); };
}

bool isEmbedded(std::string_view connection) {
  return namesSqliteFile(connection) || namesSqlite(connection);
}

}  // namespace tallow::load
