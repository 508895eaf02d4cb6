// One run of a job: from Open to Close.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/module.hpp"
#include "common/progress.hpp"
#include "common/writer_process.hpp"
#include "common/writer_wait.hpp"
#include "host/interrupt.hpp"
#include "host/job_output.hpp"
#include "host/plan.hpp"

namespace tallow::host {

// What a run has done, even if it ended early.
struct JobCounts {
  std::uint32_t blockSize = 0;    // bytes; 0 until the pipe is open
  std::uint64_t blocks = 0;       // number of the last block written
  std::uint64_t outputBytes = 0;  // the whole output
  std::uint64_t readBytes = 0;    // by this run
  double seconds = 0;             // from Open on
  double deliverySeconds = 0;     // from the first Read on
  std::uint64_t checkpoints = 0;  // that a restart or a rewind can go back to
  bool rewound = false;
  std::optional<std::uint64_t> recordedPosition;  // what the state file holds
  std::vector<std::string> warnings;
};

enum class JobEnd { kDone, kStopped };

// What must happen before the module accepts the request: a person mends something, or time passes.
enum class Cure { kMend, kTime };

// A refusal of the module that needs more words than its own. Nothing has been changed.
class RequestRefused : public std::runtime_error {
 public:
  RequestRefused(const std::string& text, client::RequestFailed request, Cure cure)
      : std::runtime_error(text), request_(std::move(request)), cure_(cure) {}
  const client::RequestFailed& request() const noexcept { return request_; }
  Cure cure() const noexcept { return cure_; }

 private:
  client::RequestFailed request_;
  Cure cure_;
};

// Delivers the data of a plan. Failures are exceptions. counts() is still valid after one.
class Job {
 public:
  // Throws ToolError if the output, or at a restart the fallback file, is not the job's.
  Job(const JobPlan& plan, client::Module& module, Interrupt& interrupt);

  // kStopped: Ctrl-C, or the writer took too long. If the plan keeps a state, the checkpoint after
  // the last whole block is recorded.
  JobEnd run();
  // For a process that ends inside a request: settles the counts and what is on the disk.
  void leave();

  const JobCounts& counts() const noexcept { return counts_; }
  // Whether anything on the disk has been changed.
  bool started() const noexcept { return started_; }
  // The output file that holds only the beginning of the data. Empty if there is none.
  std::string incompleteFile() const { return output_.incompleteFile(); }
  // The outcome of the wait for the writer, in one line without a full stop.
  std::string waitText() const;

 private:
  using Clock = std::chrono::steady_clock;
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
  bool isProtected(std::uint64_t position);
  void noticeLoss();
  void warnUnprotected(const std::string& fault);
  void record(const Checkpoint& checkpoint, Finished finished);
  JobEnd stop();
  JobEnd endOfData();
  bool waitForWriterToEnd();
  void requireWholeData();
  bool isWriterToBlame();
  bool isPerhapsCutShort() const noexcept;
  void finish();
  void settle();
  Interrupt::Patience patienceOf(std::uint64_t blocks);

  const JobPlan& plan_;
  client::Module& module_;
  Interrupt& interrupt_;
  JobOutput output_;
  JobCounts counts_;
  std::optional<tools::WriterWait> wait_;
  std::optional<client::Instance> instance_;
  std::optional<tools::WriterProcess> writer_;
  std::optional<tools::Progress> progress_;
  std::optional<Checkpoint> lastCheckpoint_;
  std::uint64_t blocksSinceCheckpoint_ = 0;
  Clock::time_point start_;
  Clock::time_point deliveryStart_;
  bool started_ = false;
  bool warned_ = false;          // has warned that the fallback file does not protect the job
  bool confirmRestart_ = false;  // the block of the restart's position has not come again yet
  bool lastBlockIsShort_ = false;
  std::atomic<bool> released_ = false;  // the end of the data comes from releaseModule()
  bool endTold_ = false;                // Read has returned pmrcEOF
};

}  // namespace tallow::host
