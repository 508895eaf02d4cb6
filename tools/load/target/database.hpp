// What a load needs of a database: one connection, and a way for rows. It is implemented once for
// each way to a database. A way knows nothing of pipes, blocks and restarts; the load knows nothing
// of drivers and SQLSTATEs.
//
// All texts are UTF-8. Every failure is a DatabaseError, which says what it means for the load.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "load/rows/row_parser.hpp"
#include "load/target/fault.hpp"

namespace tallow::load {

// What distinguishes databases for whoever writes statements for them.
struct Traits {
  std::string quote = "\"";       // the quote for a name that needs quotes; blank if there is none
  std::string textType = "TEXT";  // the type for long text
  // The number of bytes that one statement can have with its values, if the server sets a limit.
  std::optional<std::uint64_t> largestStatement;
  // A second thread in this process slows the database down by more than reading ahead gains.
  bool wantsOneThread = false;
};

// A parameter of a statement: null, a text or a whole number.
using SqlValue = std::variant<std::monostate, std::string, std::uint64_t>;

struct SqlResult {
  std::vector<std::string> columns;
  std::vector<std::vector<std::optional<std::string>>> rows;  // in the order of the columns
  std::int64_t changed = -1;  // rows that the statement has changed; -1 if the way can't say
};

// A table that exists: how statements spell it, and its columns in their order.
struct TargetTable {
  std::string sqlName;
  std::vector<std::string> columns;
};

// The database refused a statement because of one of its rows.
class RowsRefused : public DatabaseError {
 public:
  RowsRefused(const DatabaseError& error, std::vector<std::uint64_t> rows)
      : DatabaseError(error), rows_(std::move(rows)) {}
  // The numbers of the rows among which the bad one is, at least one.
  const std::vector<std::uint64_t>& rows() const noexcept { return rows_; }

 private:
  std::vector<std::uint64_t> rows_;
};

// Called with a row that the database refused after add() had returned, with the transaction
// unharmed. The number is that of add(). The row has no fields, only what it is in the data. May
// throw.
using SetAside =
    std::function<void(std::uint64_t number, const Row& row, const Diagnostic& reason)>;

// Puts rows into the open transaction. Values are copied, or sent, before add() returns.
class RowSink {
 public:
  virtual ~RowSink() = default;

  // The row must have as many fields as the sink has columns, and no defect. `number` counts the
  // job's rows. A result is why the database refused this very row, with the transaction unharmed.
  // A way that finds out later throws RowsRefused from here or from flush(). After any exception,
  // the caller must roll the transaction back and open a new sink.
  virtual std::optional<Diagnostic> add(std::uint64_t number, const Row& row) = 0;
  // Returns when the database has accepted every row that was added, but for those set aside.
  virtual void flush() = 0;
  // Returns when no row that was added can be set aside any more.
  virtual void settle() {}
};

// One connection. A transaction begins with the first statement after a commit, a rollback or the
// start. The destructor rolls back and disconnects.
class Database {
 public:
  virtual ~Database() = default;

  virtual const Traits& traits() const noexcept = 0;
  // Runs one statement with `?` for each parameter. Must not be called while a sink holds rows that
  // were not flushed.
  virtual SqlResult execute(std::string_view sql, std::span<const SqlValue> parameters = {}) = 0;
  virtual void commit() = 0;
  virtual void rollback() = 0;
  // Whether the connection is known to be gone.
  virtual bool isDead() const = 0;
  // Throws ToolError with what to do if the table can't be loaded exactly once or at all: its
  // engine has no transactions, it is a view, a column is generated. Ends the transaction.
  virtual void requireLoadable(const TargetTable& table,
                               const std::vector<std::string>& columns) = 0;
  // `columns` are those of the rows, as the table spells them. `batch` is the number of rows in a
  // statement, 0 for as many as suit the columns; a way without such statements ignores it. Throws
  // MisuseError if the columns or the batch are too many. Asks nothing of the database before the
  // first row. If there is a `setAside`, a way that finds refused rows late may go on without them
  // and tell it of each, in their order. The database must outlive the sink.
  virtual std::unique_ptr<RowSink> openRows(const TargetTable& table,
                                            const std::vector<std::string>& columns,
                                            const std::optional<std::string>& nullText,
                                            std::size_t batch, const SetAside& setAside) = 0;
};

// Makes a new connection. Throws DatabaseError, or ToolError for what cannot be connected to at
// all.
using DatabaseFactory = std::function<std::unique_ptr<Database>()>;

}  // namespace tallow::load
