// The table tallow_checkpoint: one row a job, by which loaders shut each other out.
#pragma once

#include <optional>
#include <string>

#include "load/job_record.hpp"
#include "load/odbc.hpp"

namespace tallow::load {

/// Makes the table unless it is there. Ends the transaction. Throws ToolError when the table has no
/// transactions.
void provideJobTable(Connection& connection);

/// The job's row, if there is one. Part of the transaction at hand.
std::optional<JobRecord> readJob(const Connection& connection, const std::string& job);

/// Adds 1 to the commit number of the job's row; false when there is no row. Waits for whatever
/// another connection has under way on it, and makes every later writeJob of that one fail.
bool claimJob(const Connection& connection, const std::string& job);

/// Makes the job's row at the start, with commit number 1.
void makeJob(const Connection& connection, const std::string& job, const JobRecord& record);

/// Writes settings and progress over the row that has this commit number, and adds 1 to the number.
/// False when the row is not there any more.
bool writeJob(const Connection& connection, const std::string& job, const JobRecord& record);

/// Removes the row that has this commit number, if it is still there.
void removeJob(const Connection& connection, const std::string& job, std::uint64_t commitNumber);

}  // namespace tallow::load
