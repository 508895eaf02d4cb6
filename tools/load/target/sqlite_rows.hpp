// Puts rows into a table of SQLite: one prepared statement, run for each row.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "load/target/database.hpp"
#include "load/target/sqlite_connection.hpp"

namespace tallow::load {

// SQLite says at the row itself that it is bad, and undoes what the row has changed. Only a trigger
// can have it leave something (RAISE(FAIL), RAISE(IGNORE)), so each row of a table with triggers is
// inserted within a savepoint.
class SqliteRows : public RowSink {
 public:
  // Asks nothing of the connection, which must outlive the sink, before the first row.
  SqliteRows(SqliteConnection& connection, const TargetTable& table,
             const std::vector<std::string>& columns, std::optional<std::string> nullText);

  std::optional<Diagnostic> add(std::uint64_t number, const Row& row) override;
  void flush() override {}  // every row was accepted when it was added

 private:
  // Around each row of a table with triggers.
  struct Savepoint {
    SqliteStatement begin;
    SqliteStatement release;
    SqliteStatement goBack;
  };

  void prepare();
  void bind(const Row& row);
  int bind(int parameter, const Field& field);
  std::optional<Diagnostic> insert(std::uint64_t number);
  Diagnostic refusal(std::uint64_t number, std::int64_t changesBefore) const;

  SqliteConnection& connection_;
  std::string table_;  // as statements spell it
  std::vector<std::string> columns_;
  std::string insertionSql_;
  std::optional<std::string> nullText_;
  SqliteStatement insertion_;
  std::vector<char> isInteger_;  // by column: SQLite makes a whole number of a text that is one
  std::optional<Savepoint> savepoint_;
};

}  // namespace tallow::load
