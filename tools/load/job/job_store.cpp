#include "load/job/job_store.hpp"

#include <array>
#include <utility>

#include "common/tool_error.hpp"
#include "load/target/target_table.hpp"

namespace tallow::load {
namespace {

using tools::ToolError;

constexpr const char* kTable = "tallow_checkpoint";
constexpr const char* kRejectsFile = "rejects_file";

// All columns except the key, in the order of valuesOf and recordOf. No database reserves these
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

// The record's values, in the order of kColumns.
std::vector<SqlValue> valuesOf(const JobRecord& record) {
  const JobProgress& progress = record.progress;
  const JobSettings& settings = record.settings;
  return {progress.position,
          toHex(progress.unfinishedRow),
          progress.rows,
          progress.rejects,
          progress.lines,
          progress.bytes,
          progress.rejectsLength,
          progress.reasonsLength,
          std::string(headerName(progress.header)),
          joinColumns(progress.columns),
          std::uint64_t{progress.done ? 1U : 0U},
          settings.pipe,
          settings.table,
          toHex({&settings.delimiter, 1}),
          settings.nullText ? SqlValue(*settings.nullText) : SqlValue(),
          settings.init,
          settings.rejectsFile};
}

template <typename T>
T must(std::optional<T> value) {
  if (value) return std::move(*value);
  throw ToolError(std::string("the job's row in ") + kTable +
                  " is damaged; remove it and the rows that the job has loaded, and begin anew");
}

// From the values of kColumns and the commit number.
JobRecord recordOf(const std::vector<std::optional<std::string>>& row) {
  const auto text = [&](std::size_t column) { return row.at(column).value_or(""); };
  const auto number = [&](std::size_t column) { return wholeNumber(row.at(column)); };
  JobRecord record;
  JobProgress& progress = record.progress;
  JobSettings& settings = record.settings;
  progress.position = number(0);
  progress.unfinishedRow = must(fromHex(text(1)));
  progress.rows = number(2);
  progress.rejects = number(3);
  progress.lines = number(4);
  progress.bytes = number(5);
  progress.rejectsLength = number(6);
  progress.reasonsLength = number(7);
  progress.header = must(headerFromName(text(8)));
  progress.columns = must(splitColumns(text(9)));
  progress.done = number(10) != 0;
  settings.pipe = text(11);
  settings.table = text(12);
  const std::string delimiter = must(fromHex(text(13)));
  settings.delimiter = delimiter.size() == 1 ? delimiter.front() : must(std::optional<char>());
  settings.nullText = row.at(14);
  settings.init = text(15);
  settings.rejectsFile = text(16);
  record.commitNumber = number(17);
  return record;
}

// Whether the statement has changed its one row.
bool changedOne(const SqlResult& result) {
  if (result.changed == 0) return false;
  if (result.changed == 1 || result.changed < 0) return true;
  throw DatabaseError({"21S02", 0,
                       "the database changed " + std::to_string(result.changed) +
                           " rows of the job instead of one"},
                      Fault::kPermanent);
}

}  // namespace

SqlJobStore::SqlJobStore(DatabaseFactory makeConnection, std::string job)
    : makeConnection_(std::move(makeConnection)), job_(std::move(job)) {}

void SqlJobStore::connect() {
  database_.reset();
  database_ = makeConnection_();
}

void SqlJobStore::provideTable() {
  if (tableHas("job, commit_number")) {
    provideRejectsFile();
  } else {
    makeTable();
  }
  database_->requireLoadable({kTable, {}}, {});
}

bool SqlJobStore::tableHas(const std::string& columns) {
  bool there = true;
  try {
    database_->execute("SELECT " + columns + " FROM " + kTable + " WHERE 1 = 0");
  } catch (const DatabaseError& error) {
    if (error.fault() == Fault::kLost) throw;
    there = false;
  }
  database_->rollback();
  return there;
}

// Adds the column that a table of an earlier release lacks.
void SqlJobStore::provideRejectsFile() {
  if (tableHas(kRejectsFile)) return;
  try {
    database_->execute(std::string("ALTER TABLE ") + kTable + " ADD " + kRejectsFile + " " +
                       database_->traits().textType);
    database_->commit();
  } catch (const DatabaseError& error) {
    // Another load may have added it at the same moment.
    database_->rollback();
    if (tableHas(kRejectsFile)) return;
    throw ToolError(std::string("the table ") + kTable + " has no column " + kRejectsFile +
                    ", and it cannot be added: " + error.what() + "; add it, as a text");
  }
}

void SqlJobStore::makeTable() {
  try {
    database_->execute(createSql(database_->traits().textType));
    database_->commit();
  } catch (const DatabaseError& error) {
    if (error.fault() == Fault::kLost) throw;
    // Another load may have made it at the same moment.
    database_->rollback();
    if (tableHas("job, commit_number")) return;
    throw ToolError(std::string("the table ") + kTable + " cannot be made: " + error.what() +
                    "; give the database's user the right to make it, or have it made");
  }
}

std::optional<JobRecord> SqlJobStore::read() {
  const SqlResult result = database_->execute(
      "SELECT " + columnList() + ", commit_number FROM " + kTable + " WHERE job = ?",
      std::array{SqlValue(job_)});
  if (result.rows.empty()) return std::nullopt;
  return recordOf(result.rows.front());
}

bool SqlJobStore::claim() {
  return changedOne(database_->execute(
      std::string("UPDATE ") + kTable + " SET commit_number = commit_number + 1 WHERE job = ?",
      std::array{SqlValue(job_)}));
}

bool SqlJobStore::make(const JobRecord& record) {
  std::string places;
  for (std::size_t i = 0; i < kColumns.size(); ++i) places += "?, ";
  std::vector<SqlValue> values = valuesOf(record);
  values.emplace_back(job_);
  try {
    return changedOne(database_->execute(std::string("INSERT INTO ") + kTable + " (" +
                                             columnList() + ", commit_number, job) VALUES (" +
                                             places + "1, ?)",
                                         values));
  } catch (const DatabaseError& error) {
    if (error.fault() != Fault::kBadRow) throw;
    return false;
  }
}

bool SqlJobStore::write(const JobRecord& record) {
  std::string assignments;
  for (const char* column : kColumns) {
    if (!assignments.empty()) assignments += ", ";
    assignments += std::string(column) + " = ?";
  }
  std::vector<SqlValue> values = valuesOf(record);
  values.emplace_back(job_);
  values.emplace_back(record.commitNumber);
  return changedOne(database_->execute(std::string("UPDATE ") + kTable + " SET " + assignments +
                                           ", commit_number = commit_number + 1 WHERE job = ? AND "
                                           "commit_number = ?",
                                       values));
}

void SqlJobStore::remove(std::uint64_t commitNumber) {
  database_->execute(std::string("DELETE FROM ") + kTable + " WHERE job = ? AND commit_number = ?",
                     std::array{SqlValue(job_), SqlValue(commitNumber)});
}

}  // namespace tallow::load
