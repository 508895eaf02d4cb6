#include "load/target/sqlite_rows.hpp"

#include <utility>

#include "load/target/sql_text.hpp"
#include "load/target/sqlite_schema.hpp"

namespace tallow::load {

SqliteRows::SqliteRows(SqliteConnection& connection, const TargetTable& table,
                       const std::vector<std::string>& columns, std::optional<std::string> nullText)
    : connection_(connection), table_(table.sqlName), nullText_(std::move(nullText)) {
  std::vector<std::string> quoted;
  quoted.reserve(columns.size());
  for (const std::string& column : columns) quoted.push_back(quoteName(column, "\""));
  insertionSql_ = insertStatement(table_, quoted, 1);
}

std::optional<Diagnostic> SqliteRows::add(std::uint64_t number, const Row& row) {
  connection_.begin();
  if (!insertion_) prepare();
  bind(row);
  if (!savepoint_) return insert(number);
  connection_.run(savepoint_->begin);
  std::optional<Diagnostic> reason = insert(number);
  if (reason) connection_.run(savepoint_->goBack);
  connection_.run(savepoint_->release);
  return reason;
}

void SqliteRows::prepare() {
  insertion_ = connection_.prepare(insertionSql_);
  if (!sqliteHasTriggers(connection_, table_)) return;
  savepoint_.emplace(Savepoint{connection_.prepare("SAVEPOINT tallow_row"),
                               connection_.prepare("RELEASE tallow_row"),
                               connection_.prepare("ROLLBACK TO tallow_row")});
}

// The texts are not copied: the statement has ended before the row's views do.
void SqliteRows::bind(const Row& row) {
  int parameter = 0;
  for (const Field& field : row.fields) {
    ++parameter;
    int code = SQLITE_OK;
    if (field.isNull || (nullText_ && field.text == *nullText_)) {
      code = sqlite3_bind_null(insertion_.get(), parameter);
    } else {
      // For SQLite a null pointer is a null.
      const char* text = field.text.empty() ? "" : field.text.data();
      code = sqlite3_bind_text(insertion_.get(), parameter, text,
                               static_cast<int>(field.text.size()), SQLITE_STATIC);
    }
    connection_.check(code, Step::kInsert);
  }
}

std::optional<Diagnostic> SqliteRows::insert(std::uint64_t number) {
  const std::int64_t changes = sqlite3_total_changes64(connection_.get());
  const bool done = sqlite3_step(insertion_.get()) == SQLITE_DONE;
  if (done && sqlite3_changes64(connection_.get()) == 1) {
    sqlite3_reset(insertion_.get());
    return std::nullopt;
  }
  // A trigger or ON CONFLICT IGNORE can drop a row.
  Diagnostic reason =
      done ? Diagnostic{"21S02", 0, "the database did not take the row, without a word about it"}
           : refusal(number, changes);
  sqlite3_reset(insertion_.get());
  return reason;
}

// Why the row is refused. Throws if the fault is not the row's, or if the transaction is harmed.
Diagnostic SqliteRows::refusal(std::uint64_t number, std::int64_t changesBefore) const {
  DatabaseError error = connection_.failure(Step::kInsert);
  if (error.fault() != Fault::kBadRow) throw DatabaseError(error);
  // ON CONFLICT ROLLBACK and RAISE(ROLLBACK) undo everything. A trigger that was made while this
  // load goes on can leave something.
  const bool left = !savepoint_ && sqlite3_total_changes64(connection_.get()) != changesBefore;
  if (connection_.isIdle() || left) throw RowsRefused(error, {number});
  return error.diagnostic();
}

}  // namespace tallow::load
