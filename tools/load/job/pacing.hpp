// When a checkpoint is due, and for how long a fault that passes is waited out.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "load/target/database.hpp"

namespace tallow::load {

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

// Tries again what fails with a fault that passes, until the time between two commits is used up.
class Patience {
 public:
  explicit Patience(std::chrono::seconds total) : total_(total), budget_(total) {}

  // Repeats the attempt while it fails with a fault that `passes`. Throws the first other
  // DatabaseError, and ToolError if the time is used up.
  void insist(const std::function<void()>& attempt,
              const std::function<bool(const DatabaseError&)>& passes);
  // Waits a moment after the error. Throws ToolError if the time is used up.
  void pauseAfter(const DatabaseError& error);
  // To be called after a commit.
  void renew() noexcept { budget_.renew(); }

 private:
  std::chrono::seconds total_;
  RetryBudget budget_;
};

}  // namespace tallow::load
