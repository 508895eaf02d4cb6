#include "host/job.hpp"

#include <chrono>
#include <cstdio>
#include <utility>
#include <vector>

#include "common/formatting.hpp"
#include "common/pipe_names.hpp"
#include "common/program.hpp"
#include "common/text.hpp"
#include "host/output_proof.hpp"

namespace tallow::host {
namespace {

using client::RequestFailed;

constexpr const char* kModuleName = "tallow-host";
constexpr std::chrono::milliseconds kLookAgain{100};
// A process that was ended closes its pipe a moment before others see that it has ended.
constexpr std::chrono::milliseconds kDeathPatience{1000};

JobOutput outputOf(const JobPlan& plan) {
  if (plan.restart) {
    requireFallbackFile(plan);
    return JobOutput::forRestart(*plan.restart);
  }
  return JobOutput::forJob(plan.output, plan.keepsState());
}

// Adds what the module says only in its log, in words and with a next step.
std::string initFailure(const JobPlan& plan, const RequestFailed& error) {
  std::string text = tools::ansiToUtf8(error.what());
  if (const std::string complaint = tools::explainInitString(plan.userInit).firstComplaint();
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
    text += ": the writer's data ended before the position";
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
  wait_.emplace(plan_.pipe, plan_.waitSeconds);
  instance_.emplace(open());
  counts_.blockSize = instance_->blockSize();
  if (!plan_.writerCommand.empty()) writer_.emplace(plan_.writerCommand, plan_.pipe);
  start_ = deliveryStart_ = Clock::now();
  JobEnd end = JobEnd::kStopped;
  try {
    end = deliverAll();
  } catch (...) {
    settle();
    // Close would delete the fallback file now, and the data may not be in the output yet.
    if (endTold_) instance_->abandon();
    throw;
  }
  settle();
  if (endTold_ && end == JobEnd::kStopped) {
    instance_->abandon();
  } else if (plan_.closeR) {
    instance_->closeR();
  } else {
    instance_->close();
  }
  module_.shut();
  return end;
}

void Job::settle() {
  counts_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  counts_.deliverySeconds = std::chrono::duration<double>(Clock::now() - deliveryStart_).count();
  counts_.outputBytes = output_.length();
  progress_.reset();
}

void Job::leave() {
  settle();
  output_.abandon();
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
    return module_.open(handle, pipeName(plan_));
  } catch (const RequestFailed& error) {
    if (error.request() == pmiPIDMOptInit) {
      throw RequestRefused(initFailure(plan_, error), error, Cure::kMend);
    }
    const bool isBusy = error.request() == pmiPIDMOptOpen && tools::isPipeName(plan_.pipe);
    throw RequestRefused(tools::ansiToUtf8(error.what()), error,
                         isBusy ? Cure::kTime : Cure::kMend);
  }
}

void Job::startOver() {
  started_ = true;
  // From the first Read on, the earlier job can't be restarted any more.
  if (plan_.keepsState()) removeState(plan_.statePath);
  output_.start();
  // The first checkpoint makes the fallback file, so if that fails, it is known at once.
  if (plan_.restartPossible) takeCheckpoint();
}

// False if it was stopped from outside. The record of the earlier run stays valid then.
bool Job::restart() {
  const std::uint64_t position = plan_.restart->position;
  const std::string label = "dropping re-sent data up to block " + std::to_string(position);
  if (!tools::standardErrorIsTerminal()) tools::writeToStandardError(label + "\n");
  progress_.emplace(label);
  try {
    const Interrupt::Cancellable scope(interrupt_, patienceOf(position));
    instance_->setPos(position);
  } catch (const RequestFailed& error) {
    if (interrupt_.requested()) return false;
    if (isWriterToBlame()) requireWholeData();
    const bool passes = error.code() == pmrcFailed;
    throw RequestRefused(restartFailure(plan_, error), error, passes ? Cure::kTime : Cure::kMend);
  }
  started_ = true;
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
  const Interrupt::Patience patience = patienceOf(1);
  for (;;) {
    if (interrupt_.requested()) return stop();
    client::ReadResult result;
    try {
      const Interrupt::Cancellable scope(interrupt_, patience);
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
    lastBlockIsShort_ = result.length < buffer.size();
    output_.write(std::span(buffer).first(result.length));
    counts_.readBytes += result.length;
    ++counts_.blocks;
    progress_->update(output_.length(), counts_.blocks);
    afterBlock();
  }
  endTold_ = true;
  return endOfData();
}

// Only the data's own end is the job's: without it, nothing notes the job as done.
JobEnd Job::endOfData() {
  if (!waitForWriterToEnd()) return JobEnd::kStopped;
  requireWholeData();
  finish();
  return JobEnd::kDone;
}

// False if it was stopped from outside.
bool Job::waitForWriterToEnd() {
  if (released_ && interrupt_.requested()) return false;
  if (!writer_) return true;
  progress_->waitFor("all data read, waiting for " + writer_->title() + " to end");
  const Clock::time_point since = Clock::now();
  while (!writer_->hasEnded(kLookAgain)) {
    if (interrupt_.requested()) return false;
    if (plan_.waitSeconds == 0 || Clock::now() - since < std::chrono::seconds(plan_.waitSeconds)) {
      continue;
    }
    throw tools::ToolError(writer_->title() + " has closed the pipe but not ended within " +
                               tools::formatCount(plan_.waitSeconds, "second") +
                               ", so nobody knows whether its data is whole",
                           tools::ExitStatus::kRestartable);
  }
  return true;
}

void Job::requireWholeData() {
  if (writer_) {
    const std::string fault = writer_->fault(released_);
    if (!fault.empty()) throw tools::ToolError(fault, tools::ExitStatus::kRestartable);
  }
  const std::uint64_t bytes = output_.length();
  if (plan_.expectBytes == 0 || bytes == plan_.expectBytes) return;
  throw tools::ToolError(
      "the data ended after " + std::to_string(bytes) + " bytes, and " +
          std::to_string(plan_.expectBytes) + " were expected",
      bytes < plan_.expectBytes ? tools::ExitStatus::kRestartable : tools::ExitStatus::kMendFirst);
}

// Whether a restart was refused because the writer failed while it sent its data again.
bool Job::isWriterToBlame() {
  return writer_ && writer_->hasEnded(kDeathPatience) && !writer_->fault(released_).empty();
}

void Job::afterBlock() {
  if (confirmRestart_) {
    confirmRestart_ = false;
    // Keeps this position among the file's two sync points, even if the process dies before it
    // records the next one.
    instance_->getPos();
    return;
  }
  if (isPerhapsCutShort()) return;
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
  noticeLoss();
  const Checkpoint checkpoint{instance_->getPos(), output_.lengthBeforeLastBlock()};
  blocksSinceCheckpoint_ = 0;
  if (!isProtected(checkpoint.position)) return;
  lastCheckpoint_ = checkpoint;
  if (checkpoint.position > 0) ++counts_.checkpoints;
  if (!plan_.keepsState()) return;
  output_.flushToDisk();
  record(checkpoint, Finished::kNo);
}

// Whether the module has been able to write the checkpoint. If it has not, it does not report that,
// since it delivers the data all the same.
bool Job::isProtected(std::uint64_t position) {
  if (plan_.noFallback) return false;
  if (plan_.fallbackFile.empty()) return true;  // nobody knows its name
  const std::string fault =
      tools::lookAtFallbackFile(plan_.fallbackFile, plan_.fallbackOwner, position);
  if (fault.empty()) return true;
  if (plan_.keepsState()) removeState(plan_.statePath);
  counts_.recordedPosition.reset();
  warnUnprotected(fault);
  return false;
}

// The module deletes a file that it cannot write, and makes a new one at the next checkpoint.
void Job::noticeLoss() {
  if (!counts_.recordedPosition || !plan_.restartPossible) return;
  const std::string fault = fallbackFileFault(plan_, *counts_.recordedPosition);
  if (!fault.empty()) warnUnprotected(fault);
}

void Job::warnUnprotected(const std::string& fault) {
  if (std::exchange(warned_, true)) return;
  counts_.warnings.push_back("the job goes on, but it cannot be restarted: the fallback file " +
                             plan_.fallbackFile + " " + fault +
                             "; name another place for it with Fallback_Directory");
  tools::printError("warning: " + counts_.warnings.back());
}

void Job::record(const Checkpoint& checkpoint, Finished finished) {
  const OutputProof proof = proofOf(plan_.output, checkpoint.outputLength);
  saveState(plan_.statePath,
            {plan_.pipe, plan_.output, plan_.userInit, plan_.attributes, plan_.checkpointEvery,
             counts_.blockSize, checkpoint.position, checkpoint.outputLength, proof.file, proof.end,
             finished == Finished::kYes});
  counts_.recordedPosition = checkpoint.position;
}

std::string Job::waitText() const {
  if (!released_) return wait_->text();
  return (writer_ ? writer_->title() + " has not opened " : "no writer has come to ") + plan_.pipe +
         " within " + tools::formatCount(plan_.waitSeconds, "second");
}

Interrupt::Patience Job::patienceOf(std::uint64_t blocks) {
  return [this, blocks](Interrupt::Clock::duration taken) {
    const bool isOver = wait_->isOver(taken, blocks);
    const bool mustEnd = isOver || interrupt_.requested() || (writer_ && writer_->hasEnded());
    // Otherwise the process would have to end.
    if (mustEnd && (writer_ || plan_.mayTryAgain) && tools::releaseModule(plan_.pipe)) {
      released_ = true;
    }
    return isOver;
  };
}

// A short block comes only at the end of the data, and another run's data may have more there. A
// restart at such a block would be refused.
bool Job::isPerhapsCutShort() const noexcept {
  return plan_.restartPossible && lastBlockIsShort_;
}

JobEnd Job::stop() {
  if (plan_.keepsState() && !isPerhapsCutShort()) takeCheckpoint();
  return JobEnd::kStopped;
}

void Job::finish() {
  if (plan_.keepsState()) {
    output_.flushToDisk();
    // This comes before Close, which deletes the fallback file. A restart would find nothing after
    // that.
    record({counts_.blocks, output_.length()}, Finished::kYes);
  }
  output_.finish();
}

}  // namespace tallow::host
