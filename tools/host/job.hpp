// One run of a job: from Open to Close.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "common/module.hpp"
#include "common/progress.hpp"
#include "host/interrupt.hpp"
#include "host/job_output.hpp"
#include "host/plan.hpp"

namespace tallow::host {

/// What a run has done, also when it ended early.
struct JobCounts {
  std::uint32_t blockSize = 0;    // bytes; 0 until the pipe is open
  std::uint64_t blocks = 0;       // number of the last block written
  std::uint64_t outputBytes = 0;  // the whole output
  std::uint64_t readBytes = 0;    // by this run
  double seconds = 0;             // from Open on
  double deliverySeconds = 0;     // from the first Read on
  std::uint64_t checkpoints = 0;
  bool rewound = false;
  std::optional<std::uint64_t> recordedPosition;  // what the state file holds
};

enum class JobEnd { kDone, kStopped };

/// A refusal of the module that needs more words than its own; nothing was changed by then.
class RequestRefused : public tools::ToolError {
 public:
  RequestRefused(const std::string& text, client::RequestFailed request)
      : ToolError(text), request_(std::move(request)) {}
  const client::RequestFailed& request() const noexcept { return request_; }

 private:
  client::RequestFailed request_;
};

/// Delivers the data of a plan. Failures are exceptions; counts() is good after them.
class Job {
 public:
  Job(const JobPlan& plan, client::Module& module, Interrupt& interrupt);

  /// kStopped: Ctrl-C; the checkpoint behind the last whole block is recorded if the plan keeps a
  /// state.
  JobEnd run();

  const JobCounts& counts() const noexcept { return counts_; }
  /// The output file that holds only the beginning of the data; empty when there is none.
  std::string incompleteFile() const { return output_.incompleteFile(); }

 private:
  enum class Finished { kNo, kYes };
  struct Checkpoint {
    std::uint64_t position = 0;
    std::uint64_t outputLength = 0;
  };

  client::Instance open();
  JobEnd deliverAll();
  void startOver();
  bool restart();
  JobEnd deliver();
  void afterBlock();
  bool rewindIsDue() const noexcept;
  void rewind();
  void takeCheckpoint();
  void record(const Checkpoint& checkpoint, Finished finished);
  JobEnd stop();
  void finish();

  const JobPlan& plan_;
  client::Module& module_;
  Interrupt& interrupt_;
  JobOutput output_;
  JobCounts counts_;
  std::optional<client::Instance> instance_;
  std::optional<tools::Progress> progress_;
  std::optional<Checkpoint> lastCheckpoint_;
  std::uint64_t blocksSinceCheckpoint_ = 0;
  std::chrono::steady_clock::time_point deliveryStart_;
  bool confirmRestart_ = false;  // the block of the restart's position is still to come again
  bool endTold_ = false;         // the module has answered pmrcEOF
};

}  // namespace tallow::host
