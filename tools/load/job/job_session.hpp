// One loader's claim on its job, and what it knows about the job's row.
#pragma once

#include <optional>
#include <string>

#include "common/tool_error.hpp"
#include "load/job/job_record.hpp"
#include "load/job/job_store.hpp"
#include "load/job/protocol.hpp"

namespace tallow::load {

// Another loader has taken the job, so this one must not change it any more.
class JobTaken : public tools::ToolError {
 public:
  explicit JobTaken(const std::string& job)
      : ToolError("another loader has taken the job \"" + job +
                  "\"; this one stops and leaves it alone") {}
};

// The database no longer holds what this loader has committed.
class CommitsLost : public tools::ToolError {
 public:
  explicit CommitsLost(const std::string& job)
      : ToolError("the database has gone back to an earlier state of the job \"" + job +
                      "\", as after a fail-over or from a backup: what was committed since is "
                      "missing; bring the database back to its newest state and restart, or remove "
                      "the job's rows and begin anew with --start-over",
                  tools::ExitStatus::kMendFirst) {}
};

// Whether this loader has the job.
enum class Claim {
  kNone,
  kInDoubt,    // the commit that takes the job was sent but not answered
  kHeld,       // unless another loader has taken it since
  kWithdrawn,  // the job's row has been removed
};

class JobSession {
 public:
  // The store must outlive the session.
  JobSession(JobStore& store, std::string job, JobSettings settings);

  // The job's row as it is now. Ends the transaction.
  std::optional<JobRecord> look();
  // Takes the job in a separate transaction. After that an older holder can commit nothing. `start`
  // is the progress of a job that begins. Throws ToolError with the reason if the job is refused
  // after all, because another loader was first.
  void take(RunMode mode, const JobProgress& start);
  // If it is in doubt, another attempt to take the job could find the row of this one.
  Claim claim() const noexcept { return claim_; }
  // Removes the job's row if it is still this loader's and nothing was committed.
  void withdraw();

  // Sets committed() to what this row says. Takes nothing.
  void adopt(const JobRecord& record) { belief_.committed = record.progress; }

  // The last transaction whose outcome is known.
  const JobProgress& committed() const noexcept { return belief_.committed; }

  // Commits the current transaction together with the progress. Throws JobTaken and CommitsLost.
  void commit(const JobProgress& progress);

  // Closes the connection, makes a new one, takes the job again and finds out what has happened to
  // it. After that, committed() is what the database says. Throws DatabaseError, JobTaken and
  // CommitsLost.
  AfterReconnection reconnect();

 private:
  std::optional<JobRecord> claimRow();
  void commitTake(const JobProgress& progress, std::uint64_t commitNumber);
  [[noreturn]] void explainLoss(const std::optional<JobRecord>& row) const;

  JobStore& store_;
  std::string job_;
  JobSettings settings_;
  Claim claim_ = Claim::kNone;
  Belief belief_;
};

}  // namespace tallow::load
