#include "load/target/sqlite_rows.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "load/target/sql_text.hpp"
#include "load/target/sqlite_schema.hpp"

namespace tallow::load {
namespace {

// The whole number that the text is, if it is written in the only way that a number has: SQLite
// then makes the same of it, in more time.
std::optional<std::int64_t> plainNumber(std::string_view text) {
  constexpr std::size_t kMostDigits = 18;
  const bool negative = text.starts_with('-');
  const std::string_view digits = text.substr(negative ? 1 : 0);
  const bool leadsWithZero = digits.starts_with('0') && (digits.size() > 1 || negative);
  if (digits.empty() || digits.size() > kMostDigits || leadsWithZero) return std::nullopt;
  std::int64_t number = 0;
  for (const char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    number = number * 10 + (c - '0');
  }
  return negative ? -number : number;
}

}  // namespace

SqliteRows::SqliteRows(SqliteConnection& connection, const TargetTable& table,
                       const std::vector<std::string>& columns, std::optional<std::string> nullText)
    : connection_(connection),
      table_(table.sqlName),
      columns_(columns),
      nullText_(std::move(nullText)) {
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
  const std::vector<std::string> integers = sqliteIntegerColumns(connection_, table_);
  for (const std::string& column : columns_) {
    isInteger_.push_back(std::ranges::find(integers, column) != integers.end() ? 1 : 0);
  }
  if (!sqliteHasTriggers(connection_, table_)) return;
  savepoint_.emplace(Savepoint{connection_.prepare("SAVEPOINT tallow_row"),
                               connection_.prepare("RELEASE tallow_row"),
                               connection_.prepare("ROLLBACK TO tallow_row")});
}

void SqliteRows::bind(const Row& row) {
  int parameter = 0;
  for (const Field& field : row.fields) {
    ++parameter;
    connection_.check(bind(parameter, field), Step::kInsert);
  }
}

// A text is not copied: the statement has ended before the row's views do.
int SqliteRows::bind(int parameter, const Field& field) {
  if (field.isNull || (nullText_ && field.text == *nullText_)) {
    return sqlite3_bind_null(insertion_.get(), parameter);
  }
  if (isInteger_[static_cast<std::size_t>(parameter) - 1]) {
    if (const std::optional<std::int64_t> number = plainNumber(field.text)) {
      return sqlite3_bind_int64(insertion_.get(), parameter, *number);
    }
  }
  // For SQLite a null pointer is a null.
  const char* text = field.text.empty() ? "" : field.text.data();
  return sqlite3_bind_text(insertion_.get(), parameter, text, static_cast<int>(field.text.size()),
                           SQLITE_STATIC);
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
