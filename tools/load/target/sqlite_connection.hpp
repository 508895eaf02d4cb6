// SQLite with owners and exceptions. Every failure is a DatabaseError with SQLite's words.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "load/target/fault.hpp"

namespace tallow::load {

struct SqliteClose {
  void operator()(sqlite3* database) const noexcept { sqlite3_close(database); }
};
struct SqliteFinalize {
  void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
};
using SqliteStatement = std::unique_ptr<sqlite3_stmt, SqliteFinalize>;

// A database in a file. One thread at a time may use it and what was made of it. Statements must
// end before it.
class SqliteConnection {
 public:
  // Opens the file, and makes it if it is not there. `file` is UTF-8, relative or absolute.
  // `longestWait` is how long a statement waits for a lock. Throws DatabaseError.
  SqliteConnection(const std::string& file, std::chrono::milliseconds longestWait);

  sqlite3* get() const noexcept { return database_.get(); }
  SqliteStatement prepare(std::string_view sql, Step step = Step::kOther) const;
  // Runs a statement that nobody wants the rows of.
  void run(std::string_view sql, Step step = Step::kOther) const;
  // Runs a prepared one and sets it back.
  void run(const SqliteStatement& statement, Step step = Step::kOther) const;

  // Begins a transaction unless one is open. Throws if SQLite has undone the one that was open.
  void begin();
  void commit();
  void rollback();
  // Whether no transaction is open, or no longer.
  bool isIdle() const noexcept { return sqlite3_get_autocommit(get()) != 0; }

  // What the last call, which has failed, reported.
  DatabaseError failure(Step step) const;
  // Throws the failure unless the code is SQLITE_OK.
  void check(int code, Step step = Step::kOther) const {
    if (code != SQLITE_OK) throw DatabaseError(failure(step));
  }

 private:
  void requireUsable() const;
  void requireTransaction();

  std::string file_;
  std::unique_ptr<sqlite3, SqliteClose> database_;
  bool begun_ = false;  // a transaction, which was neither committed nor rolled back by us
};

}  // namespace tallow::load
