#include "host/job_output.hpp"

#include <windows.h>

#include <utility>

#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "host/output_proof.hpp"

namespace tallow::host {

using tools::OutputFile;

namespace {

// A restart cuts the file back, so it must be the one whose beginning the state counts. If no bytes
// count and so none can be compared, it must be the very same file, or an empty one.
void requireOutputOf(const JobState& state, std::uint64_t size) {
  if (size < state.outputLength) {
    throw tools::ToolError(state.output + " has " + std::to_string(size) +
                           " bytes, but the state counts " + std::to_string(state.outputLength) +
                           "; put the output of this job back, or start over with --new");
  }
  const OutputProof proof = proofOf(state.output, state.outputLength);
  const bool same = state.outputLength > 0 ? proof.end == state.outputEnd
                                           : size == 0 || proof.file == state.outputFile;
  if (same) return;
  throw tools::ToolError(state.output +
                         " is not what this job wrote and was not touched; put the output of this "
                         "job back, or start over with --new");
}

}  // namespace

JobOutput JobOutput::forJob(const std::string& path, bool restartable) {
  JobOutput output;
  output.path_ = path;
  if (path == "-") {
    output.standardOutput_ = true;
    output.file_ = OutputFile::standardOutput();
    return output;
  }
  output.file_ = OutputFile::tryOpenExisting(path);
  const bool device = output.file_ && !output.file_->isOrdinary();
  if (device && restartable) {
    throw tools::MisuseError(path + " is no ordinary file and cannot be cut back for --state");
  }
  if (device) return output;  // a device such as NUL: nothing to rename
  if (restartable) {
    if (!output.file_) {
      output.file_ = OutputFile::create(path);
      output.created_ = true;
    }
    return output;
  }
  output.partPath_ = path + ".part";
  output.file_ = OutputFile::create(output.partPath_);
  return output;
}

JobOutput JobOutput::forRestart(const JobState& state) {
  JobOutput output;
  output.path_ = state.output;
  output.file_ = OutputFile::openExisting(state.output);
  if (!output.file_->isOrdinary()) {
    throw tools::ToolError(state.output + " is no ordinary file; a job never wrote it");
  }
  requireOutputOf(state, output.file_->size());
  output.length_ = output.lengthBeforeLastBlock_ = state.outputLength;
  return output;
}

void JobOutput::abandon() {
  if (!file_ || finished_) return;
  const bool unused = created_ && !started_;
  file_.reset();
  if (partPath_.empty() && !unused) return;
  DeleteFileW(tools::toWide(unused ? path_ : partPath_).c_str());
}

void JobOutput::start() {
  started_ = true;
  if (partPath_.empty() && !standardOutput_ && file_->isOrdinary()) file_->cutTo(length_);
}

void JobOutput::write(std::span<const std::byte> block) {
  file_->write(block);
  lengthBeforeLastBlock_ = std::exchange(length_, length_ + block.size());
}

void JobOutput::cutTo(std::uint64_t length) {
  file_->cutTo(length);
  length_ = lengthBeforeLastBlock_ = length;
}

void JobOutput::finish() {
  file_.reset();
  finished_ = true;
  if (!partPath_.empty()) tools::renameFile(partPath_, path_);
}

std::string JobOutput::incompleteFile() const {
  return started_ && !finished_ && partPath_.empty() && !standardOutput_ ? path_ : std::string();
}

}  // namespace tallow::host
