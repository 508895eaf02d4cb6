// The decisions by which a load inserts each row exactly once. No database, no pipe, no clock: only
// what follows from what is known.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "load/job/job_record.hpp"

namespace tallow::load {

enum class RunMode { kNew, kRestart, kStartOver };

// What a run does about the job's row.
struct Beginning {
  enum class Kind {
    kFromTheStart,  // make the row, or set it back to the start
    kGoOn,          // continue from what the row says
    kAlreadyDone,   // nothing more to do
    kRefused,       // change nothing
  };
  Kind kind = Kind::kFromTheStart;
  std::string reason;  // why it is refused, and what to do
};

// `tableRows` is the number of rows in the table, which is counted only for starting over.
Beginning decideBeginning(RunMode mode, const std::string& job,
                          const std::optional<JobRecord>& recorded, const JobSettings& settings,
                          std::uint64_t tableRows);

// What a loader knows that has lost its connection.
struct Belief {
  JobProgress committed;               // the last transaction whose commit was confirmed
  std::uint64_t commitNumber = 0;      // the row's number, as this loader last knew it
  std::optional<JobProgress> inDoubt;  // a commit that was sent but not answered
  unsigned unansweredClaims = 0;       // claims of the row that were sent but not answered
};

enum class AfterReconnection {
  kStayHere,     // the commit in doubt succeeded; the stream is at its position already
  kGoBack,       // SetPos to the row's position
  kFinished,     // the commit in doubt was the job's last and succeeded
  kTaken,        // another loader has the job
  kLostCommits,  // the database has gone back to an earlier state
};

// `row` is the row in the database after this loader has added 1 to its commit number.
AfterReconnection decideAfterReconnection(const Belief& belief, const JobRecord& row);

}  // namespace tallow::load
