#include "host/job.hpp"

#include <windows.h>

#include <chrono>
#include <cstdio>
#include <vector>

#include "common/formatting.hpp"
#include "common/program.hpp"
#include "common/text.hpp"

namespace tallow::host {
namespace {

using Clock = std::chrono::steady_clock;
using client::RequestFailed;

constexpr const char* kModuleName = "tallow-host";

/// With one of these the module takes the pipe's name as UTF-8.
bool pipeNameIsUtf8(const std::vector<Attribute>& attributes) {
  std::string charset;
  for (const Attribute& attribute : attributes) {
    if (attribute.name == "CHARSET_NAME") charset = attribute.value;
  }
  return charset == "UTF8" || charset == "UTF16";
}

JobOutput outputOf(const JobPlan& plan) {
  if (plan.restart) return JobOutput::forRestart(plan.output, plan.restart->outputLength);
  return JobOutput::forJob(plan.output, plan.keepsState());
}

/// Adds what the module leaves to its log, in words and with a next step.
std::string initFailure(const JobPlan& plan, const RequestFailed& error) {
  std::string text = tools::ansiToUtf8(error.what());
  if (const std::string complaint = explainInitString(plan.userInit).firstComplaint();
      !complaint.empty()) {
    text += ": " + complaint;
  }
  return text + "; tallow-host --explain shows what each option does";
}

std::string restartFailure(const JobPlan& plan, const RequestFailed& error) {
  std::string text = "the restart was refused: " + tools::ansiToUtf8(error.what());
  if (error.code() == pmrcDelivery) {
    text += ": the data that the writer sends again differs from that of the first run";
  } else if (error.code() == pmrcBadPosition) {
    text += ": the fallback file does not know the position, or the writer's data ended before it";
  }
  return text + "; the output " + plan.output +
         " is as it was; send the same data, or start over with --new";
}

}  // namespace

Job::Job(const JobPlan& plan, client::Module& module, Interrupt& interrupt)
    : plan_(plan), module_(module), interrupt_(interrupt), output_(outputOf(plan)) {
  if (!plan.restart) return;
  lastCheckpoint_ = Checkpoint{plan.restart->position, plan.restart->outputLength};
  counts_.recordedPosition = plan.restart->position;
  counts_.outputBytes = plan.restart->outputLength;
}

JobEnd Job::run() {
  instance_.emplace(open());
  counts_.blockSize = instance_->blockSize();
  const auto start = Clock::now();
  deliveryStart_ = start;
  const auto note = [&] {
    counts_.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    counts_.deliverySeconds = std::chrono::duration<double>(Clock::now() - deliveryStart_).count();
    counts_.outputBytes = output_.length();
    progress_.reset();
  };
  JobEnd end = JobEnd::kStopped;
  try {
    end = deliverAll();
  } catch (...) {
    note();
    // Close would delete the fallback file now, and the output may not hold the data yet.
    if (endTold_) instance_->abandon();
    throw;
  }
  note();
  if (plan_.closeR) {
    instance_->closeR();
  } else {
    instance_->close();
  }
  module_.shut();
  return end;
}

JobEnd Job::deliverAll() {
  if (!plan_.restart) {
    startOver();
  } else if (!restart()) {
    return JobEnd::kStopped;
  }
  return deliver();
}

client::Instance Job::open() {
  try {
    void* const handle = module_.init(tools::toAnsi(plan_.moduleInit), kModuleName);
    for (const Attribute& attribute : plan_.attributes) {
      module_.setAttribute(handle, tools::toAnsi(attribute.name), tools::toAnsi(attribute.value));
    }
    return module_.open(handle,
                        pipeNameIsUtf8(plan_.attributes) ? plan_.pipe : tools::toAnsi(plan_.pipe));
  } catch (const RequestFailed& error) {
    if (error.request() == pmiPIDMOptInit) {
      throw RequestRefused(initFailure(plan_, error), error);
    }
    throw;
  }
}

void Job::startOver() {
  // From the first Read on, the earlier job can't be restarted any more.
  if (plan_.keepsState()) removeState(plan_.statePath);
  output_.start();
}

/// False when Ctrl-C ended it; the record of the earlier run stands then.
bool Job::restart() {
  const std::uint64_t position = plan_.restart->position;
  if (plan_.restartPossible) interrupt_.setForcedStatus(tools::ExitStatus::kRestartable);
  const std::string label = "dropping re-sent data up to block " + std::to_string(position);
  if (!tools::standardErrorIsTerminal()) tools::writeToStandardError(label + "\n");
  progress_.emplace(label);
  try {
    const Interrupt::Cancellable scope(interrupt_);
    instance_->setPos(position);
  } catch (const RequestFailed& error) {
    if (interrupt_.requested()) return false;
    throw RequestRefused(restartFailure(plan_, error), error);
  }
  output_.start();
  counts_.blocks = position == 0 ? 0 : position - 1;
  confirmRestart_ = position > 0;
  return true;
}

JobEnd Job::deliver() {
  deliveryStart_ = Clock::now();
  progress_.reset();
  progress_.emplace("read", std::nullopt);
  progress_->startAt(output_.length(), counts_.blocks);
  progress_->waitFor("waiting for data from a writer at " + plan_.pipe);
  std::vector<std::byte> buffer(instance_->blockSize());
  for (;;) {
    if (interrupt_.requested()) return stop();
    client::ReadResult result;
    try {
      const Interrupt::Cancellable scope(interrupt_);
      result = instance_->read(buffer);
    } catch (const RequestFailed&) {
      if (interrupt_.requested()) return stop();
      throw;
    }
    if (result.atEnd()) {
      if (!rewindIsDue()) break;
      rewind();
      continue;
    }
    output_.write(std::span(buffer).first(result.length));
    counts_.readBytes += result.length;
    ++counts_.blocks;
    progress_->update(output_.length(), counts_.blocks);
    afterBlock();
  }
  endTold_ = true;
  finish();
  return JobEnd::kDone;
}

void Job::afterBlock() {
  if (confirmRestart_) {
    confirmRestart_ = false;
    // Keeps this position among the file's two sync points, whatever dies before the next record.
    instance_->getPos();
    return;
  }
  if (plan_.checkpointEvery == 0 || ++blocksSinceCheckpoint_ < plan_.checkpointEvery) return;
  if (rewindIsDue()) {
    rewind();
  } else {
    takeCheckpoint();
  }
}

bool Job::rewindIsDue() const noexcept {
  return plan_.rewindAfter != 0 && !counts_.rewound && counts_.checkpoints == plan_.rewindAfter;
}

void Job::rewind() {
  counts_.rewound = true;
  instance_->setPos(lastCheckpoint_->position);
  output_.cutTo(lastCheckpoint_->outputLength);
  counts_.blocks = lastCheckpoint_->position - 1;
  blocksSinceCheckpoint_ = 0;
}

void Job::takeCheckpoint() {
  lastCheckpoint_ = Checkpoint{instance_->getPos(), output_.lengthBeforeLastBlock()};
  ++counts_.checkpoints;
  blocksSinceCheckpoint_ = 0;
  if (!plan_.keepsState()) return;
  output_.flushToDisk();
  record(*lastCheckpoint_, Finished::kNo);
}

void Job::record(const Checkpoint& checkpoint, Finished finished) {
  saveState(plan_.statePath, {plan_.pipe, plan_.output, plan_.userInit, plan_.attributes,
                              plan_.checkpointEvery, counts_.blockSize, checkpoint.position,
                              checkpoint.outputLength, finished == Finished::kYes});
  counts_.recordedPosition = checkpoint.position;
  if (plan_.restartPossible) interrupt_.setForcedStatus(tools::ExitStatus::kRestartable);
}

JobEnd Job::stop() {
  if (plan_.keepsState()) takeCheckpoint();
  return JobEnd::kStopped;
}

void Job::finish() {
  if (plan_.keepsState()) {
    output_.flushToDisk();
    // Before Close, which deletes the fallback file: a restart would find nothing.
    record({counts_.blocks, output_.length()}, Finished::kYes);
  }
  output_.finish();
}

}  // namespace tallow::host
