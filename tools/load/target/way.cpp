#include "load/target/way.hpp"

#include "load/target/connection_string.hpp"
#include "load/target/odbc_database.hpp"
#include "load/target/postgres.hpp"
#include "load/target/postgres_text.hpp"
#include "load/target/sqlite_database.hpp"

namespace tallow::load {

DatabaseFactory wayTo(const Destination& destination) {
  if (namesSqliteFile(destination.connection)) {
    return [file = sqliteFileOf(destination.connection), wait = destination.longestWait] {
      return openSqlite(file, wait);
    };
  }
  if (namesPostgres(destination.connection)) {
    const PostgresDestination server{destination.connection, destination.libpqFile,
                                     destination.clientName, destination.longestWait,
                                     destination.onNotice};
    return [server] { return connectByLibpq(server); };
  }
  return [destination] { return connectByOdbc(destination.connection, destination.longestWait); };
}

bool isEmbedded(std::string_view connection) {
  return namesSqliteFile(connection) || namesSqlite(connection);
}

}  // namespace tallow::load
