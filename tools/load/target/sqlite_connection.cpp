#include "load/target/sqlite_connection.hpp"

#include <new>

#include "load/target/sqlite_fault.hpp"

namespace tallow::load {

SqliteConnection::SqliteConnection(const std::string& file, std::chrono::milliseconds longestWait)
    : file_(file) {
  sqlite3* opened = nullptr;
  const int code =
      sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (opened == nullptr) throw std::bad_alloc();
  database_.reset(opened);
  sqlite3_extended_result_codes(opened, 1);
  check(code, Step::kConnect);
  check(sqlite3_busy_timeout(opened, static_cast<int>(longestWait.count())), Step::kConnect);
  requireUsable();
}

// SQLite looks at the file only when something of it is needed. We want to know now what is wrong
// with it.
void SqliteConnection::requireUsable() const {
  run("SELECT COUNT(*) FROM sqlite_schema", Step::kConnect);
  if (sqlite3_db_readonly(get(), "main") != 1) return;
  throw DatabaseError({std::string(sqliteState(SQLITE_READONLY)), SQLITE_READONLY,
                       file_ + " can only be read; " + std::string(sqliteAdvice(SQLITE_READONLY))},
                      Fault::kPermanent, Step::kConnect);
}

SqliteStatement SqliteConnection::prepare(std::string_view sql, Step step) const {
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr),
        step);
  return SqliteStatement(statement);
}

void SqliteConnection::run(std::string_view sql, Step step) const {
  run(prepare(sql, step), step);
}

void SqliteConnection::run(const SqliteStatement& statement, Step step) const {
  int code = SQLITE_ROW;
  while (code == SQLITE_ROW) code = sqlite3_step(statement.get());
  check(sqlite3_reset(statement.get()), step);
}

void SqliteConnection::begin() {
  if (begun_) {
    requireTransaction();
    return;
  }
  run("BEGIN");
  begun_ = true;
}

void SqliteConnection::commit() {
  if (!begun_) return;
  requireTransaction();
  run("COMMIT");
  begun_ = false;
}

void SqliteConnection::rollback() {
  if (!isIdle()) run("ROLLBACK");
  begun_ = false;
}

// Some failures undo the whole transaction. What comes after one must not begin another.
void SqliteConnection::requireTransaction() {
  if (!isIdle()) return;
  throw DatabaseError({"40000", 0, "the database has undone the transaction"}, Fault::kLost);
}

DatabaseError SqliteConnection::failure(Step step) const {
  const int code = sqlite3_extended_errcode(get());
  std::string text = sqlite3_errmsg(get());
  const int kind = code & 0xff;
  const int system = sqlite3_system_errno(get());
  if ((kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN) && system != 0) {
    text += ", system error " + std::to_string(system);
  }
  if (const std::string_view advice = sqliteAdvice(code); !advice.empty()) {
    text += " (" + file_ + "); " + std::string(advice);
  }
  return {{std::string(sqliteState(code)), code, text},
          sqliteFault(code, step),
          step,
          sqliteIsLocked(code)};
}

}  // namespace tallow::load
