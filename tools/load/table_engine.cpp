#include "load/table_engine.hpp"

#include <optional>

#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

// The engine that MariaDB and MySQL name for the table. Empty for a view.
std::string engineOf(const Connection& connection, const std::string& sqlName) {
  Statement statement(connection);
  statement.execute("SHOW CREATE TABLE " + sqlName);
  if (!statement.fetch()) return {};
  const std::string text = statement.text(2).value_or("");
  constexpr std::string_view kMark = "\n) ENGINE=";
  const std::size_t mark = text.rfind(kMark);
  if (mark == std::string::npos) return {};
  const std::size_t begin = mark + kMark.size();
  return text.substr(begin, text.find_first_of(" \n", begin) - begin);
}

bool hasTransactions(const Connection& connection, const std::string& engine) {
  Statement statement(connection);
  statement.prepare("SELECT TRANSACTIONS FROM information_schema.ENGINES WHERE ENGINE = ?");
  statement.bindText(engine);
  statement.executePrepared();
  return !statement.fetch() || statement.text(1).value_or("") != "NO";
}

}  // namespace

void requireTransactions(Connection& connection, const std::string& sqlName) {
  if (connection.dialect() != Dialect::kMariadb) return;
  const std::string engine = engineOf(connection, sqlName);
  const bool good = engine.empty() || hasTransactions(connection, engine);
  connection.rollback();
  if (good) return;
  throw tools::ToolError("the table " + sqlName + " has the engine " + engine +
                         ", which has no transactions, so that rows could come twice; change it "
                         "with ALTER TABLE " +
                         sqlName + " ENGINE=InnoDB");
}

}  // namespace tallow::load
