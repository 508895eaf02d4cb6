#include "load/job_table.hpp"

#include <array>
#include <utility>

#include "common/tool_error.hpp"
#include "load/table_engine.hpp"

namespace tallow::load {
namespace {

using tools::ToolError;

constexpr const char* kTable = "tallow_checkpoint";
constexpr const char* kRejectsFile = "rejects_file";

// All columns except the key, in the order of bindRecord and readRecord. No database reserves these
// names.
constexpr std::array kColumns = {
    "block_position", "unfinished_row", "rows_loaded",    "rows_rejected",   "line_breaks",
    "bytes_read",     "rejects_length", "reasons_length", "header_state",    "columns_in_force",
    "job_done",       "pipe_name",      "target_table",   "field_delimiter", "null_text",
    "init_string",    kRejectsFile};

std::string createSql(const std::string& textType) {
  const std::string text = " " + textType;
  const std::string count = " BIGINT NOT NULL";
  return std::string("CREATE TABLE ") + kTable + " (job VARCHAR(255) NOT NULL PRIMARY KEY, " +
         "block_position" + count + ", unfinished_row" + text + ", rows_loaded" + count +
         ", rows_rejected" + count + ", line_breaks" + count + ", bytes_read" + count +
         ", rejects_length" + count + ", reasons_length" + count +
         ", header_state VARCHAR(8) NOT NULL, columns_in_force" + text + ", job_done" + count +
         ", commit_number" + count + ", pipe_name" + text + ", target_table" + text +
         ", field_delimiter VARCHAR(8) NOT NULL, null_text" + text + ", init_string" + text +
         ", rejects_file" + text + ")";
}

std::string columnList() {
  std::string list;
  for (const char* column : kColumns) {
    if (!list.empty()) list += ", ";
    list += column;
  }
  return list;
}

void bindRecord(Statement& statement, const JobRecord& record) {
  const JobProgress& progress = record.progress;
  statement.bindNumber(progress.position);
  statement.bindText(toHex(progress.unfinishedRow));
  statement.bindNumber(progress.rows);
  statement.bindNumber(progress.rejects);
  statement.bindNumber(progress.lines);
  statement.bindNumber(progress.bytes);
  statement.bindNumber(progress.rejectsLength);
  statement.bindNumber(progress.reasonsLength);
  statement.bindText(std::string(headerName(progress.header)));
  statement.bindText(joinColumns(progress.columns));
  statement.bindNumber(progress.done ? 1 : 0);
  const JobSettings& settings = record.settings;
  statement.bindText(settings.pipe);
  statement.bindText(settings.table);
  statement.bindText(toHex({&settings.delimiter, 1}));
  statement.bindText(settings.nullText);
  statement.bindText(settings.init);
  statement.bindText(settings.rejectsFile);
}

template <typename T>
T must(std::optional<T> value) {
  if (value) return std::move(*value);
  throw ToolError(std::string("the job's row in ") + kTable +
                  " is damaged; remove it and the rows that the job has loaded, and begin anew");
}

// Reads the columns in their order, because not every driver can go back.
JobRecord readRecord(Statement& row) {
  JobRecord record;
  JobProgress& progress = record.progress;
  JobSettings& settings = record.settings;
  progress.position = row.number(1);
  progress.unfinishedRow = must(fromHex(row.text(2).value_or("")));
  progress.rows = row.number(3);
  progress.rejects = row.number(4);
  progress.lines = row.number(5);
  progress.bytes = row.number(6);
  progress.rejectsLength = row.number(7);
  progress.reasonsLength = row.number(8);
  progress.header = must(headerFromName(row.text(9).value_or("")));
  progress.columns = must(splitColumns(row.text(10).value_or("")));
  progress.done = row.number(11) != 0;
  settings.pipe = row.text(12).value_or("");
  settings.table = row.text(13).value_or("");
  const std::string delimiter = must(fromHex(row.text(14).value_or("")));
  settings.delimiter = delimiter.size() == 1 ? delimiter.front() : must(std::optional<char>());
  settings.nullText = row.text(15);
  settings.init = row.text(16).value_or("");
  settings.rejectsFile = row.text(17).value_or("");
  record.commitNumber = row.number(18);
  return record;
}

bool jobTableHas(Connection& connection, const std::string& columns) {
  bool there = true;
  try {
    Statement(connection).execute("SELECT " + columns + " FROM " + kTable + " WHERE 1 = 0");
  } catch (const DatabaseError& error) {
    if (classify(error.diagnostic(), connection.dialect(), Step::kOther) == Fault::kLost) throw;
    there = false;
  }
  connection.rollback();
  return there;
}

bool jobTableIsThere(Connection& connection) {
  return jobTableHas(connection, "job, commit_number");
}

// Adds the column that a table of an earlier release lacks.
void provideRejectsFile(Connection& connection) {
  if (jobTableHas(connection, kRejectsFile)) return;
  try {
    Statement(connection)
        .execute(std::string("ALTER TABLE ") + kTable + " ADD " + kRejectsFile + " " +
                 connection.textType());
    connection.commit();
  } catch (const DatabaseError& error) {
    // Another load may have added it at the same moment.
    connection.rollback();
    if (jobTableHas(connection, kRejectsFile)) return;
    throw ToolError(std::string("the table ") + kTable + " has no column " + kRejectsFile +
                    ", and it cannot be added: " + error.what() + "; add it, as a text");
  }
}

// False if no row was changed. Throws if the change was refused.
bool changedOne(const Statement& statement) {
  if (statement.changedRows() == 0 && !statement.note()) return false;
  statement.requireChanged(1);
  return true;
}

void makeJobTable(Connection& connection) {
  try {
    Statement(connection).execute(createSql(connection.textType()));
    connection.commit();
  } catch (const DatabaseError& error) {
    if (classify(error.diagnostic(), connection.dialect(), Step::kOther) == Fault::kLost) throw;
    // Another load may have made it at the same moment.
    connection.rollback();
    if (jobTableIsThere(connection)) return;
    throw ToolError(std::string("the table ") + kTable + " cannot be made: " + error.what() +
                    "; give the database's user the right to make it, or have it made");
  }
}

}  // namespace

void provideJobTable(Connection& connection) {
  if (jobTableIsThere(connection)) {
    provideRejectsFile(connection);
  } else {
    makeJobTable(connection);
  }
  requireTransactions(connection, kTable);
}

std::optional<JobRecord> readJob(const Connection& connection, const std::string& job) {
  Statement statement(connection);
  statement.prepare("SELECT " + columnList() + ", commit_number FROM " + kTable + " WHERE job = ?");
  statement.bindText(job);
  statement.executePrepared();
  if (!statement.fetch()) return std::nullopt;
  return readRecord(statement);
}

bool claimJob(const Connection& connection, const std::string& job) {
  Statement statement(connection);
  statement.prepare(std::string("UPDATE ") + kTable +
                    " SET commit_number = commit_number + 1 WHERE job = ?");
  statement.bindText(job);
  statement.executePrepared();
  return changedOne(statement);
}

void makeJob(const Connection& connection, const std::string& job, const JobRecord& record) {
  std::string values;
  for (std::size_t i = 0; i < kColumns.size(); ++i) values += "?, ";
  Statement statement(connection);
  statement.prepare(std::string("INSERT INTO ") + kTable + " (" + columnList() +
                    ", commit_number, job) VALUES (" + values + "1, ?)");
  bindRecord(statement, record);
  statement.bindText(job);
  statement.executePrepared();
  statement.requireChanged(1);
}

bool writeJob(const Connection& connection, const std::string& job, const JobRecord& record) {
  std::string assignments;
  for (const char* column : kColumns) {
    if (!assignments.empty()) assignments += ", ";
    assignments += std::string(column) + " = ?";
  }
  Statement statement(connection);
  statement.prepare(std::string("UPDATE ") + kTable + " SET " + assignments +
                    ", commit_number = commit_number + 1 WHERE job = ? AND commit_number = ?");
  bindRecord(statement, record);
  statement.bindText(job);
  statement.bindNumber(record.commitNumber);
  statement.executePrepared();
  return changedOne(statement);
}

void removeJob(const Connection& connection, const std::string& job, std::uint64_t commitNumber) {
  Statement statement(connection);
  statement.prepare(std::string("DELETE FROM ") + kTable + " WHERE job = ? AND commit_number = ?");
  statement.bindText(job);
  statement.bindNumber(commitNumber);
  statement.executePrepared();
}

}  // namespace tallow::load
