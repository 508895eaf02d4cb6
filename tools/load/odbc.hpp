// ODBC with owners and exceptions. Every failure is a DatabaseError with the driver's words.
//
// Texts are UTF-8 here; they go to the driver manager in UTF-16, except the values of rows, which
// are bound as bytes (SQL_C_CHAR).
#pragma once

#include <windows.h>
// sql.h needs windows.h before it.
#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "load/sql_fault.hpp"

namespace tallow::load {

/// Owns one ODBC handle of any kind.
class OdbcHandle {
 public:
  OdbcHandle() = default;
  OdbcHandle(SQLSMALLINT type, SQLHANDLE parent);
  OdbcHandle(OdbcHandle&& other) noexcept;
  OdbcHandle& operator=(OdbcHandle&& other) noexcept;
  ~OdbcHandle();

  SQLHANDLE get() const noexcept { return handle_; }
  SQLSMALLINT type() const noexcept { return type_; }
  /// The first diagnostic of the last call on this handle.
  Diagnostic diagnostic() const;
  /// Throws DatabaseError unless the result is a success.
  void check(SQLRETURN result, Step step = Step::kOther) const;

 private:
  SQLSMALLINT type_ = 0;
  SQLHANDLE handle_ = nullptr;
};

/// A connection in manual-commit mode. Rolls back and disconnects at its end.
class Connection {
 public:
  explicit Connection(const std::string& connectionString);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void commit();
  void rollback();
  /// Whether the driver knows that the connection is gone.
  bool isDead() const;

  Dialect dialect() const noexcept { return dialect_; }
  /// What stands around a name that needs quotes.
  const std::string& quote() const noexcept { return quote_; }
  /// The database's type for long text.
  const std::string& textType() const noexcept { return textType_; }
  const OdbcHandle& handle() const noexcept { return connection_; }

 private:
  std::string information(SQLUSMALLINT what) const;
  std::string longTextType() const;

  OdbcHandle environment_;
  OdbcHandle connection_;
  bool connected_ = false;
  Dialect dialect_ = Dialect::kStandard;
  std::string quote_;
  std::string textType_;
};

/// A statement, run once or many times.
class Statement {
 public:
  explicit Statement(const Connection& connection);

  void execute(std::string_view sql);
  void prepare(std::string_view sql);
  void executePrepared(Step step = Step::kOther);
  /// Each call binds the next parameter, to a copy of the value.
  void bindText(const std::optional<std::string>& value);
  void bindNumber(std::uint64_t value);

  std::int64_t changedRows() const;
  std::vector<std::string> columnNames() const;
  /// False behind the last row.
  bool fetch();
  /// A column of the fetched row, counted from 1, in ascending order; nothing for null.
  std::optional<std::string> text(SQLUSMALLINT column);
  std::uint64_t number(SQLUSMALLINT column);
  const OdbcHandle& handle() const noexcept { return statement_; }

 private:
  struct Parameter {
    std::wstring text;
    SQLLEN length = 0;
    SQLBIGINT number = 0;
  };

  Parameter& addParameter();

  OdbcHandle statement_;
  // Bound by address: reserved, so that they stay where they are.
  std::vector<Parameter> parameters_;
};

/// SQL text for the wide functions.
std::vector<SQLWCHAR> toSqlText(std::string_view utf8);

}  // namespace tallow::load
