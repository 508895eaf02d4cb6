#include "load/target/odbc_database.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "common/tool_error.hpp"
#include "load/target/insert_batch.hpp"
#include "load/target/odbc.hpp"
#include "load/target/sql_text.hpp"

namespace tallow::load {
namespace {

using tools::MisuseError;

void bind(Statement& statement, const SqlValue& value) {
  if (const auto* number = std::get_if<std::uint64_t>(&value)) {
    statement.bindNumber(*number);
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    statement.bindText(*text);
  } else {
    statement.bindText(std::nullopt);
  }
}

// The number of rows that the statement has changed. Some drivers report a refused statement as a
// success with a note.
std::int64_t changedBy(const Statement& statement) {
  const std::int64_t changed = statement.changedRows();
  if (changed <= 0 && statement.note()) statement.fail(*statement.note(), Step::kInsert);
  return changed;
}

class OdbcDatabase : public Database {
 public:
  OdbcDatabase(const std::string& connectionString, std::chrono::milliseconds longestWait)
      : connection_(connectionString, longestWait),
        traits_{connection_.quote(), connection_.textType(), connection_.largestStatement(),
                connection_.dialect() == Dialect::kSqlite} {}

  const Traits& traits() const noexcept override { return traits_; }
  SqlResult execute(std::string_view sql, std::span<const SqlValue> parameters) override;
  void commit() override { connection_.commit(); }
  void rollback() override { connection_.rollback(); }
  bool isDead() const override { return connection_.isDead(); }
  void requireLoadable(const TargetTable& table, const std::vector<std::string>& columns) override;
  std::unique_ptr<RowSink> openRows(const TargetTable& table,
                                    const std::vector<std::string>& columns,
                                    const std::optional<std::string>& nullText, std::size_t batch,
                                    const SetAside& setAside) override;

 private:
  std::string engineOf(const std::string& sqlName);
  bool hasTransactions(const std::string& engine);
  std::size_t rowsInStatement(std::size_t columns, std::size_t batch) const;

  Connection connection_;
  Traits traits_;
};

SqlResult OdbcDatabase::execute(std::string_view sql, std::span<const SqlValue> parameters) {
  Statement statement(connection_);
  if (parameters.empty()) {
    statement.execute(sql);
  } else {
    statement.prepare(sql);
    for (const SqlValue& parameter : parameters) bind(statement, parameter);
    statement.executePrepared(Step::kInsert);
  }
  SqlResult result;
  result.columns = statement.columnNames();
  if (result.columns.empty()) {
    if (!parameters.empty()) result.changed = changedBy(statement);
    return result;
  }
  while (statement.fetch()) {
    std::vector<std::optional<std::string>>& row = result.rows.emplace_back();
    for (std::size_t i = 1; i <= result.columns.size(); ++i) {
      row.push_back(statement.text(static_cast<SQLUSMALLINT>(i)));
    }
  }
  return result;
}

// The engine that MariaDB and MySQL name for the table. Empty for a view.
std::string OdbcDatabase::engineOf(const std::string& sqlName) {
  const SqlResult result = execute("SHOW CREATE TABLE " + sqlName, {});
  if (result.rows.empty()) return {};
  const std::string text = result.rows.front().at(1).value_or("");
  constexpr std::string_view kMark = "\n) ENGINE=";
  const std::size_t mark = text.rfind(kMark);
  if (mark == std::string::npos) return {};
  const std::size_t begin = mark + kMark.size();
  return text.substr(begin, text.find_first_of(" \n", begin) - begin);
}

bool OdbcDatabase::hasTransactions(const std::string& engine) {
  const SqlResult result =
      execute("SELECT TRANSACTIONS FROM information_schema.ENGINES WHERE ENGINE = ?",
              std::array{SqlValue(engine)});
  return result.rows.empty() || result.rows.front().at(0).value_or("") != "NO";
}

void OdbcDatabase::requireLoadable(const TargetTable& table,
                                   const std::vector<std::string>& /*columns*/) {
  if (connection_.dialect() != Dialect::kMariadb) return;
  const std::string engine = engineOf(table.sqlName);
  const bool good = engine.empty() || hasTransactions(engine);
  rollback();
  if (good) return;
  throw tools::ToolError("the table " + table.sqlName + " has the engine " + engine +
                         ", which has no transactions, so that rows could come twice; change it "
                         "with ALTER TABLE " +
                         table.sqlName + " ENGINE=InnoDB");
}

std::size_t OdbcDatabase::rowsInStatement(std::size_t columns, std::size_t batch) const {
  const std::size_t most = connection_.mostParameters() / std::max<std::size_t>(columns, 1);
  if (most == 0) {
    throw MisuseError("the table has " + std::to_string(columns) +
                      " columns, more than a statement of this database can fill; name fewer with "
                      "--columns");
  }
  if (batch == 0) return std::min(defaultBatch(columns), most);
  if (batch > most) {
    throw MisuseError("--batch " + std::to_string(batch) + " with " + std::to_string(columns) +
                      " columns is more than a statement of this database can hold; give at most "
                      "--batch " +
                      std::to_string(most));
  }
  return batch;
}

std::unique_ptr<RowSink> OdbcDatabase::openRows(const TargetTable& table,
                                                const std::vector<std::string>& columns,
                                                const std::optional<std::string>& nullText,
                                                std::size_t batch, const SetAside& /*setAside*/) {
  std::vector<std::string> quoted;
  quoted.reserve(columns.size());
  for (const std::string& column : columns) quoted.push_back(quoteName(column, traits_.quote));
  return std::make_unique<InsertBatch>(connection_, table.sqlName, std::move(quoted),
                                       rowsInStatement(columns.size(), batch), nullText);
}

}  // namespace

std::unique_ptr<Database> connectByOdbc(const std::string& connectionString,
                                        std::chrono::milliseconds longestWait) {
  return std::make_unique<OdbcDatabase>(connectionString, longestWait);
}

}  // namespace tallow::load
