#include "load/job_session.hpp"

#include <utility>

#include "load/job_table.hpp"

namespace tallow::load {

using tools::ToolError;

JobSession::JobSession(std::string connectionString, std::string job, JobSettings settings,
                       std::chrono::milliseconds longestWait)
    : connectionString_(std::move(connectionString)),
      job_(std::move(job)),
      settings_(std::move(settings)),
      longestWait_(longestWait) {}

void JobSession::connect() {
  connection_.reset();
  connection_ = std::make_unique<Connection>(connectionString_, longestWait_);
}

std::optional<JobRecord> JobSession::look() {
  std::optional<JobRecord> record = readJob(*connection_, job_);
  connection_->rollback();
  return record;
}

// Adds 1 to the row's commit number and reads the row, both in the current transaction. Waits for
// what an earlier connection still does to the row.
std::optional<JobRecord> JobSession::claim() {
  if (!claimJob(*connection_, job_)) return std::nullopt;
  return readJob(*connection_, job_);
}

void JobSession::take(RunMode mode, const JobProgress& start) {
  const JobRecord fresh{settings_, start, 1};
  std::optional<JobRecord> record = claim();
  if (!record && mode != RunMode::kRestart) {
    try {
      makeJob(*connection_, job_, fresh);
      takeIsInDoubt_ = true;
      connection_->commit();
      takeIsInDoubt_ = false;
      belief_ = {start, fresh.commitNumber, std::nullopt, 0};
      return;
    } catch (const DatabaseError& error) {
      if (classify(error.diagnostic(), connection_->dialect(), Step::kInsert) != Fault::kBadRow) {
        throw;
      }
    }
    // Another loader has made the row at the same moment.
    takeIsInDoubt_ = false;
    connection_->rollback();
    record = claim();
  }
  // The table has been checked before, so its rows do not matter here.
  const Beginning beginning = decideBeginning(mode, job_, record, settings_, 0);
  if (beginning.kind == Beginning::Kind::kRefused || !record) {
    connection_->rollback();
    throw ToolError(beginning.reason.empty() ? "the job's row is gone; try again"
                                             : beginning.reason);
  }
  if (beginning.kind == Beginning::Kind::kFromTheStart) record->progress = start;
  if (beginning.kind != Beginning::Kind::kAlreadyDone) {
    const bool goesOn = beginning.kind == Beginning::Kind::kGoOn;
    if (goesOn && settings_.rejectsFile.empty()) {
      settings_.rejectsFile = record->settings.rejectsFile;
    }
    record->settings = settings_;
    writeJob(*connection_, job_, *record);
    ++record->commitNumber;
  }
  takeIsInDoubt_ = true;
  connection_->commit();
  takeIsInDoubt_ = false;
  belief_ = {record->progress, record->commitNumber, std::nullopt, 0};
}

void JobSession::withdraw() {
  connection_->rollback();
  removeJob(*connection_, job_, belief_.commitNumber);
  connection_->commit();
}

void JobSession::commit(const JobProgress& progress) {
  if (!writeJob(*connection_, job_, {settings_, progress, belief_.commitNumber})) {
    connection_->rollback();
    explainLoss(look());
  }
  belief_.inDoubt = progress;
  connection_->commit();
  ++belief_.commitNumber;
  belief_.committed = progress;
  belief_.inDoubt.reset();
}

// Explains that the row is not as this loader left it.
void JobSession::explainLoss(const std::optional<JobRecord>& row) const {
  if (!row || row->commitNumber < belief_.commitNumber) throw CommitsLost(job_);
  throw JobTaken(job_);
}

AfterReconnection JobSession::reconnect() {
  connect();
  ++belief_.unansweredClaims;
  const std::optional<JobRecord> row = claim();
  if (!row) {
    connection_->rollback();
    throw CommitsLost(job_);
  }
  const AfterReconnection outcome = decideAfterReconnection(belief_, *row);
  if (outcome == AfterReconnection::kTaken || outcome == AfterReconnection::kLostCommits) {
    connection_->rollback();
    if (outcome == AfterReconnection::kTaken) throw JobTaken(job_);
    throw CommitsLost(job_);
  }
  connection_->commit();
  --belief_.unansweredClaims;
  belief_ = {row->progress, row->commitNumber, std::nullopt, 0};
  return outcome;
}

}  // namespace tallow::load
