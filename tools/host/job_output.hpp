// Where a job's data goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "common/output_file.hpp"
#include "host/job_state.hpp"

namespace tallow::host {

// The data of a job in the order of its blocks.
//
// A job that can be restarted writes directly into its file, because a restart continues that file.
// The file of any other job appears only when the job is done. Until then the data is in NAME.part,
// which is deleted if the job fails.
class JobOutput {
 public:
  // Checks that the file can be written, but does not touch its content before start(). If the file
  // was not there before, it stays only if start() was reached. "-" is standard output.
  static JobOutput forJob(const std::string& path, bool restartable);
  // A file that an earlier run of the job has begun. Throws ToolError unless it is proved to be the
  // one that the state counts.
  static JobOutput forRestart(const JobState& state);

  JobOutput(JobOutput&&) = default;
  ~JobOutput() { abandon(); }

  // Empties the file, or cuts it back to the length that is kept.
  void start();
  void write(std::span<const std::byte> block);
  void cutTo(std::uint64_t length);
  void flushToDisk() { file_->flushToDisk(); }
  // The data is complete: gives the file its name.
  void finish();
  // Closes the file, and deletes it if it is of no use.
  void abandon();

  std::uint64_t length() const noexcept { return length_; }
  // The length of the output before the last written block.
  std::uint64_t lengthBeforeLastBlock() const noexcept { return lengthBeforeLastBlock_; }
  // The file that holds the beginning of the data after a failure. Empty if there is none.
  std::string incompleteFile() const;

 private:
  JobOutput() = default;

  std::string path_;
  std::string partPath_;  // empty: the file is written directly
  std::optional<tools::OutputFile> file_;
  bool standardOutput_ = false;
  bool created_ = false;  // we have created the file itself
  bool started_ = false;
  bool finished_ = false;
  std::uint64_t length_ = 0;
  std::uint64_t lengthBeforeLastBlock_ = 0;
};

}  // namespace tallow::host
