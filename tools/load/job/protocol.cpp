#include "load/job/protocol.hpp"

#include <utility>

namespace tallow::load {
namespace {

Beginning refuse(std::string reason) {
  return {Beginning::Kind::kRefused, std::move(reason)};
}

Beginning decideRestart(const std::string& job, const std::optional<JobRecord>& recorded,
                        const JobSettings& settings) {
  if (!recorded) {
    return refuse("the database holds no checkpoint of the job \"" + job +
                  "\"; run without --restart to begin it, or name the right --job");
  }
  if (const std::string difference = differenceOf(recorded->settings, settings);
      !difference.empty()) {
    return refuse("the checkpoint of the job \"" + job + "\" is of another load: " + difference +
                  "; give the same as before, or begin anew with --start-over");
  }
  if (recorded->progress.done) return {Beginning::Kind::kAlreadyDone, {}};
  return {Beginning::Kind::kGoOn, {}};
}

Beginning decideStartOver(const std::string& job, const std::optional<JobRecord>& recorded,
                          std::uint64_t tableRows) {
  if (recorded && recorded->progress.rows > 0 && tableRows > 0) {
    return refuse(
        "the job \"" + job + "\" has committed " + std::to_string(recorded->progress.rows) +
        " rows and the table holds " + std::to_string(tableRows) + "; remove those " +
        std::to_string(recorded->progress.rows) + " first, then start over with --rows-removed");
  }
  return {};
}

}  // namespace

Beginning decideBeginning(RunMode mode, const std::string& job,
                          const std::optional<JobRecord>& recorded, const JobSettings& settings,
                          std::uint64_t tableRows) {
  switch (mode) {
    case RunMode::kRestart:
      return decideRestart(job, recorded, settings);
    case RunMode::kStartOver:
      return decideStartOver(job, recorded, tableRows);
    case RunMode::kNew:
      break;
  }
  if (recorded && !recorded->progress.done) {
    return refuse("the job \"" + job +
                  "\" was begun and is not done; go on with it (--restart), or give it up "
                  "(--start-over), or name another --job");
  }
  return {};
}

AfterReconnection decideAfterReconnection(const Belief& belief, const JobRecord& row) {
  // This loader itself has raised the number: by the claim just answered, by commits that
  // succeeded, and by claims that were not answered but succeeded all the same.
  const auto standsAt = [&](const JobProgress& progress, std::uint64_t earliest) {
    return row.progress == progress && row.commitNumber >= earliest &&
           row.commitNumber - earliest <= belief.unansweredClaims;
  };
  if (belief.inDoubt && standsAt(*belief.inDoubt, belief.commitNumber + 2)) {
    return row.progress.done ? AfterReconnection::kFinished : AfterReconnection::kStayHere;
  }
  if (standsAt(belief.committed, belief.commitNumber + 1)) return AfterReconnection::kGoBack;
  // No loader lowers the number.
  return row.commitNumber <= belief.commitNumber ? AfterReconnection::kLostCommits
                                                 : AfterReconnection::kTaken;
}

}  // namespace tallow::load
