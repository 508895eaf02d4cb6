// One loader's hold on its job: the connection, the job's row, and what is known of it.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "common/tool_error.hpp"
#include "load/job_record.hpp"
#include "load/odbc.hpp"
#include "load/protocol.hpp"

namespace tallow::load {

/// Another loader has taken the job: this one has nothing more to say in it.
class JobTaken : public tools::ToolError {
 public:
  explicit JobTaken(const std::string& job)
      : ToolError("another loader has taken the job \"" + job +
                  "\"; this one stops and leaves it alone") {}
};

/// The database no longer holds what this loader has committed.
class CommitsLost : public tools::ToolError {
 public:
  explicit CommitsLost(const std::string& job)
      : ToolError("the database has gone back to an earlier state of the job \"" + job +
                      "\", as after a fail-over or from a backup: what was committed since is "
                      "missing; bring the database back to its newest state and restart, or remove "
                      "the job's rows and begin anew with --start-over",
                  tools::ExitStatus::kMendFirst) {}
};

class JobSession {
 public:
  /// Does not connect. `longestWait` is for each lock.
  JobSession(std::string connectionString, std::string job, JobSettings settings,
             std::chrono::milliseconds longestWait);

  Connection& connection() noexcept { return *connection_; }
  const std::string& job() const noexcept { return job_; }

  /// The job's row as it stands. Ends the transaction.
  std::optional<JobRecord> look();
  /// Takes the job in a transaction of its own: from now on an older holder commits nothing.
  /// `start` is what a job that begins has. Throws ToolError with the reason when the job is
  /// refused after all, since another loader came first.
  void take(RunMode mode, const JobProgress& start);
  /// Whether take() has sent its commit: trying it again could then meet its own row.
  bool takeIsInDoubt() const noexcept { return takeIsInDoubt_; }
  /// Makes the connection, or makes it anew.
  void connect();
  /// Removes the job's row while it is still this loader's and nothing was committed.
  void withdraw();

  /// committed() is what this row says; nothing is taken.
  void adopt(const JobRecord& record) { belief_.committed = record.progress; }
  bool isDead() const { return connection_ && connection_->isDead(); }

  /// The last transaction whose outcome is known.
  const JobProgress& committed() const noexcept { return belief_.committed; }

  /// Commits the transaction at hand together with the progress. Throws JobTaken and CommitsLost.
  void commit(const JobProgress& progress);
  void rollback() { connection_->rollback(); }

  /// Drops the connection, makes a new one, takes the job again and finds out what became of it.
  /// committed() is then what the database says. Throws DatabaseError, JobTaken and CommitsLost.
  AfterReconnection reconnect();

 private:
  std::optional<JobRecord> claim();
  [[noreturn]] void explainLoss(const std::optional<JobRecord>& row) const;

  std::string connectionString_;
  std::string job_;
  JobSettings settings_;
  std::chrono::milliseconds longestWait_;
  bool takeIsInDoubt_ = false;
  std::unique_ptr<Connection> connection_;
  Belief belief_;
};

}  // namespace tallow::load
