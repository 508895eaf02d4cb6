#include "load/target/sqlite_database.hpp"

#include <utility>

#include "common/tool_error.hpp"
#include "load/target/sqlite_connection.hpp"
#include "load/target/sqlite_rows.hpp"
#include "load/target/sqlite_schema.hpp"

namespace tallow::load {
namespace {

constexpr std::string_view kScheme = "sqlite:";

class SqliteDatabase : public Database {
 public:
  SqliteDatabase(const std::string& file, std::chrono::milliseconds longestWait)
      : connection_(file, longestWait) {
    // SQLite looks at the foreign keys that a table declares only if it is asked to.
    connection_.run("PRAGMA foreign_keys = ON", Step::kConnect);
  }

  const Traits& traits() const noexcept override { return traits_; }
  SqlResult execute(std::string_view sql, std::span<const SqlValue> parameters) override;
  void commit() override { connection_.commit(); }
  void rollback() override { connection_.rollback(); }
  bool isDead() const override { return false; }  // There is nobody at another end.
  void requireLoadable(const TargetTable& table, const std::vector<std::string>& columns) override;
  std::unique_ptr<RowSink> openRows(const TargetTable& table,
                                    const std::vector<std::string>& columns,
                                    const std::optional<std::string>& nullText,
                                    std::size_t /*batch*/, const SetAside& /*setAside*/) override {
    return std::make_unique<SqliteRows>(connection_, table, columns, nullText);
  }

 private:
  void bind(sqlite3_stmt* statement, int parameter, const SqlValue& value) const;
  void takeRow(sqlite3_stmt* statement, SqlResult& result) const;

  SqliteConnection connection_;
  Traits traits_;
};

void SqliteDatabase::bind(sqlite3_stmt* statement, int parameter, const SqlValue& value) const {
  int code = SQLITE_OK;
  if (const auto* number = std::get_if<std::uint64_t>(&value)) {
    code = sqlite3_bind_int64(statement, parameter, static_cast<sqlite3_int64>(*number));
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    code = sqlite3_bind_text64(statement, parameter, text->data(), text->size(), SQLITE_STATIC,
                               SQLITE_UTF8);
  } else {
    code = sqlite3_bind_null(statement, parameter);
  }
  connection_.check(code);
}

void SqliteDatabase::takeRow(sqlite3_stmt* statement, SqlResult& result) const {
  std::vector<std::optional<std::string>>& row = result.rows.emplace_back();
  for (int column = 0; column < static_cast<int>(result.columns.size()); ++column) {
    std::optional<std::string>& value = row.emplace_back();
    if (sqlite3_column_type(statement, column) == SQLITE_NULL) continue;
    const unsigned char* text = sqlite3_column_text(statement, column);
    if (text == nullptr) connection_.check(sqlite3_errcode(connection_.get()));
    value.emplace(reinterpret_cast<const char*>(text),
                  static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
  }
}

SqlResult SqliteDatabase::execute(std::string_view sql, std::span<const SqlValue> parameters) {
  connection_.begin();
  const SqliteStatement statement = connection_.prepare(sql);
  int parameter = 0;
  for (const SqlValue& value : parameters) bind(statement.get(), ++parameter, value);
  SqlResult result;
  for (int column = 0; column < sqlite3_column_count(statement.get()); ++column) {
    result.columns.emplace_back(sqlite3_column_name(statement.get(), column));
  }
  while (sqlite3_step(statement.get()) == SQLITE_ROW) takeRow(statement.get(), result);
  connection_.check(sqlite3_reset(statement.get()), Step::kInsert);
  if (result.columns.empty()) result.changed = sqlite3_changes64(connection_.get());
  return result;
}

void SqliteDatabase::requireLoadable(const TargetTable& table,
                                     const std::vector<std::string>& columns) {
  requireSqliteTable(connection_, table, columns);
  rollback();
}

}  // namespace

bool namesSqliteFile(std::string_view address) noexcept {
  return address.starts_with(kScheme);
}

std::string sqliteFileOf(std::string_view address) {
  std::string file(address.substr(kScheme.size()));
  // SQLite would make a database in memory of these.
  if (!file.empty() && file != ":memory:") return file;
  throw tools::MisuseError("\"" + std::string(address) +
                           "\" names no file; write sqlite:FILE, as in sqlite:orders.db");
}

std::unique_ptr<Database> openSqlite(const std::string& file,
                                     std::chrono::milliseconds longestWait) {
  return std::make_unique<SqliteDatabase>(file, longestWait);
}

}  // namespace tallow::load
