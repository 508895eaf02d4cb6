#include "host/job_output.hpp"

#include <windows.h>

#include <utility>

#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::host {

using tools::OutputFile;

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
  if (device) return output;  // NUL and its like: nothing to rename
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

JobOutput JobOutput::forRestart(const std::string& path, std::uint64_t keptLength) {
  JobOutput output;
  output.path_ = path;
  output.file_ = OutputFile::openExisting(path);
  if (const std::uint64_t size = output.file_->size(); size < keptLength) {
    throw tools::ToolError(path + " has " + std::to_string(size) + " bytes, but the state counts " +
                           std::to_string(keptLength) +
                           "; put the output of this job back, or start over with --new");
  }
  output.length_ = output.lengthBeforeLastBlock_ = keptLength;
  return output;
}

JobOutput::~JobOutput() {
  if (!file_ || finished_) return;
  const bool unused = created_ && !started_;
  if (partPath_.empty() && !unused) return;
  file_.reset();
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
