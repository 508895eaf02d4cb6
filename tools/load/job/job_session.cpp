#include "load/job/job_session.hpp"

#include <utility>

namespace tallow::load {

using tools::ToolError;

JobSession::JobSession(JobStore& store, std::string job, JobSettings settings)
    : store_(store), job_(std::move(job)), settings_(std::move(settings)) {}

std::optional<JobRecord> JobSession::look() {
  std::optional<JobRecord> record = store_.read();
  store_.rollback();
  return record;
}

// Adds 1 to the row's commit number and reads the row, both in the current transaction. Waits for
// what an earlier connection still does to the row.
std::optional<JobRecord> JobSession::claimRow() {
  if (!store_.claim()) return std::nullopt;
  return store_.read();
}

void JobSession::take(RunMode mode, const JobProgress& start) {
  const JobRecord fresh{settings_, start, 1};
  std::optional<JobRecord> record = claimRow();
  if (!record && mode != RunMode::kRestart) {
    if (store_.make(fresh)) {
      commitTake(start, fresh.commitNumber);
      return;
    }
    // Another loader has made the row at the same moment.
    store_.rollback();
    record = claimRow();
  }
  // The table has been checked before, so its rows do not matter here.
  const Beginning beginning = decideBeginning(mode, job_, record, settings_, 0);
  if (beginning.kind == Beginning::Kind::kRefused || !record) {
    store_.rollback();
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
    store_.write(*record);
    ++record->commitNumber;
  }
  commitTake(record->progress, record->commitNumber);
}

void JobSession::commitTake(const JobProgress& progress, std::uint64_t commitNumber) {
  claim_ = Claim::kInDoubt;
  store_.commit();
  claim_ = Claim::kHeld;
  belief_ = {progress, commitNumber, std::nullopt, 0};
}

void JobSession::withdraw() {
  store_.rollback();
  store_.remove(belief_.commitNumber);
  store_.commit();
  claim_ = Claim::kWithdrawn;
}

void JobSession::commit(const JobProgress& progress) {
  if (!store_.write({settings_, progress, belief_.commitNumber})) {
    store_.rollback();
    explainLoss(look());
  }
  belief_.inDoubt = progress;
  store_.commit();
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
  store_.connect();
  ++belief_.unansweredClaims;
  const std::optional<JobRecord> row = claimRow();
  if (!row) {
    store_.rollback();
    throw CommitsLost(job_);
  }
  const AfterReconnection outcome = decideAfterReconnection(belief_, *row);
  if (outcome == AfterReconnection::kTaken || outcome == AfterReconnection::kLostCommits) {
    store_.rollback();
    if (outcome == AfterReconnection::kTaken) throw JobTaken(job_);
    throw CommitsLost(job_);
  }
  store_.commit();
  --belief_.unansweredClaims;
  belief_ = {row->progress, row->commitNumber, std::nullopt, 0};
  return outcome;
}

}  // namespace tallow::load
