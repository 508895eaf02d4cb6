// ODBC with owners and exceptions. Every failure is a DatabaseError with the driver's words.
//
// Texts are UTF-8 here. They are passed to the driver manager in UTF-16, except for the values of
// rows, which are bound as bytes (SQL_C_CHAR).
#pragma once

#include <windows.h>
// sql.h needs windows.h before it.
#include <sql.h>
#include <sqlext.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "load/target/fault.hpp"

namespace tallow::load {

// Owns one ODBC handle of any kind.
class OdbcHandle {
 public:
  OdbcHandle() = default;
  OdbcHandle(SQLSMALLINT type, SQLHANDLE parent, Dialect dialect = Dialect::kStandard);
  OdbcHandle(OdbcHandle&& other) noexcept;
  OdbcHandle& operator=(OdbcHandle&& other) noexcept;
  ~OdbcHandle();

  SQLHANDLE get() const noexcept { return handle_; }
  SQLSMALLINT type() const noexcept { return type_; }
  // The first diagnostic of the last call on this handle. Empty if there is none.
  Diagnostic diagnostic() const;
  // The dialect in which failures of this handle are judged.
  Dialect dialect() const noexcept { return dialect_; }
  void setDialect(Dialect dialect) noexcept { dialect_ = dialect; }
  // Throws DatabaseError unless the result is a success.
  void check(SQLRETURN result, Step step = Step::kOther) const;

 private:
  SQLSMALLINT type_ = 0;
  SQLHANDLE handle_ = nullptr;
  Dialect dialect_ = Dialect::kStandard;
};

// A connection in manual-commit mode. The destructor rolls back and disconnects.
class Connection {
 public:
  // `longestWait` is how long the database lets a statement wait for a lock. Throws DatabaseError,
  // or ToolError if the driver is asked to connect again by itself.
  explicit Connection(const std::string& connectionString,
                      std::chrono::milliseconds longestWait = std::chrono::seconds{30});
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void commit();
  void rollback();
  // Whether the driver knows that the connection is gone.
  bool isDead() const;

  Dialect dialect() const noexcept { return connection_.dialect(); }
  // The quote for a name that needs quotes.
  const std::string& quote() const noexcept { return quote_; }
  // The database's type for long text.
  const std::string& textType() const noexcept { return textType_; }
  // The number of parameters that one statement can have.
  std::size_t mostParameters() const noexcept { return mostParameters_; }
  // The number of bytes that one statement can have with its values, if the server sets a limit.
  std::optional<std::uint64_t> largestStatement() const noexcept { return largestStatement_; }
  const OdbcHandle& handle() const noexcept { return connection_; }

 private:
  void connect(const std::string& connectionString);
  void refuseDangers(const std::string& given, const std::string& completed);
  void setUp(std::chrono::milliseconds longestWait);
  void limitWaits(std::chrono::milliseconds longestWait);
  std::string information(SQLUSMALLINT what) const;
  std::string longTextType() const;
  std::size_t driverLimit() const;
  std::size_t parameterLimit() const;

  OdbcHandle environment_;
  OdbcHandle connection_;
  std::string quote_;
  std::string textType_;
  std::size_t mostParameters_ = 0;
  std::optional<std::uint64_t> largestStatement_;
};

// A statement, run once or many times.
class Statement {
 public:
  explicit Statement(const Connection& connection);

  void execute(std::string_view sql);
  void prepare(std::string_view sql);
  void executePrepared(Step step = Step::kOther);
  // Each call binds the next parameter to a copy of the value.
  void bindText(const std::optional<std::string>& value);
  void bindNumber(std::uint64_t value);

  // -1 if the driver can't say.
  std::int64_t changedRows() const;
  // Throws DatabaseError, with the driver's note, unless that many rows were changed.
  void requireChanged(std::int64_t rows, Step step = Step::kOther) const;
  // Throws the diagnostic as a DatabaseError.
  [[noreturn]] void fail(const Diagnostic& diagnostic, Step step) const;
  // What the driver reports about the last execution in addition to success.
  const std::optional<Diagnostic>& note() const noexcept { return note_; }
  std::vector<std::string> columnNames() const;
  // False after the last row.
  bool fetch();
  // A column of the fetched row, counted from 1. Columns must be read in ascending order. None for
  // null.
  std::optional<std::string> text(SQLUSMALLINT column);
  // Throws DatabaseError unless the column holds a whole number that is not negative.
  std::uint64_t number(SQLUSMALLINT column);
  const OdbcHandle& handle() const noexcept { return statement_; }

 private:
  struct Parameter {
    std::wstring text;
    SQLLEN length = 0;
    SQLBIGINT number = 0;
  };

  Parameter& addParameter();
  void keepNote(SQLRETURN result);

  OdbcHandle statement_;
  std::optional<Diagnostic> note_;
  // They are bound by address, so room is reserved to keep them in place.
  std::vector<Parameter> parameters_;
};

// Text for the wide functions of SQL.
std::vector<SQLWCHAR> toSqlText(std::string_view utf8);

}  // namespace tallow::load
