// The decisions by which a load inserts each row exactly once. No database, no pipe, no clock: only
// what follows from what is known.
#pragma once

#include <chrono>
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

// When a checkpoint is due, and when it must wait.
class CheckpointPacer {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // A block that arrives this long after the last commit is committed with it. So a slow writer
  // keeps no transaction open in its pauses, although no checkpoint can be taken during a pause.
  static constexpr std::chrono::seconds kLongestTransaction{5};

  // `every` is a number of blocks, at least 1.
  explicit CheckpointPacer(std::uint64_t every) : every_(every) {}

  // The run starts at this position, or continues there after a new load.
  void startAt(std::uint64_t position, Time now) noexcept {
    committed_ = highest_ = current_ = position;
    committedAt_ = now;
  }
  void delivered(std::uint64_t block, Time now) noexcept {
    current_ = block;
    deliveredAt_ = now;
    if (block > highest_) {
      highest_ = block;
      replaying_ = false;
    }
  }
  void committed(std::uint64_t position, Time now) noexcept {
    committed_ = position;
    committedAt_ = now;
  }
  // The stream has gone back within the run.
  void wentBack(std::uint64_t position) noexcept {
    committed_ = current_ = position;
    replaying_ = true;
  }

  // A position at a block that is replayed would not start the fallback file's data again, and
  // would be refused later. So the checkpoint waits for a block that is delivered for the first
  // time.
  bool due() const noexcept {
    return !replaying_ &&
           (current_ - committed_ >= every_ || deliveredAt_ - committedAt_ >= kLongestTransaction);
  }

 private:
  std::uint64_t every_;
  std::uint64_t committed_ = 0;
  std::uint64_t current_ = 0;
  std::uint64_t highest_ = 0;
  Time committedAt_;
  Time deliveredAt_;
  bool replaying_ = false;
};

// The pauses between attempts to connect. They grow, and their sum between two commits is limited.
class RetryBudget {
 public:
  explicit RetryBudget(std::chrono::milliseconds total) : total_(total) {}

  // The next pause. None if the time is used up.
  std::optional<std::chrono::milliseconds> nextPause();
  // Subtracts the time of a failed attempt.
  void spend(std::chrono::milliseconds time) noexcept { spent_ += time; }
  // To be called after a commit: the whole time is available again.
  void renew() noexcept;

 private:
  std::chrono::milliseconds total_;
  std::chrono::milliseconds spent_{0};
  std::chrono::milliseconds pause_{0};
};

}  // namespace tallow::load
