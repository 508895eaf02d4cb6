// The table tallow_checkpoint. It has one row for each job, by which loaders exclude each other.
#pragma once

#include <optional>
#include <string>

#include "load/job_record.hpp"
#include "load/odbc.hpp"

namespace tallow::load {

// Makes the table if it does not exist. Ends the transaction. Throws ToolError if the table has no
// transactions.
void provideJobTable(Connection& connection);

// The job's row, if there is one. Part of the current transaction.
std::optional<JobRecord> readJob(const Connection& connection, const std::string& job);

// Adds 1 to the commit number of the job's row. False if there is no row. Waits for what another
// connection does to the row, and makes every later writeJob of that connection fail.
bool claimJob(const Connection& connection, const std::string& job);

// Makes the job's row at its beginning, with commit number 1.
void makeJob(const Connection& connection, const std::string& job, const JobRecord& record);

// Writes settings and progress into the row that has this commit number, and adds 1 to the number.
// False if there is no such row any more.
bool writeJob(const Connection& connection, const std::string& job, const JobRecord& record);

// Removes the row that has this commit number, if it still exists.
void removeJob(const Connection& connection, const std::string& job, std::uint64_t commitNumber);

}  // namespace tallow::load
