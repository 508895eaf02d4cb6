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

/// The data of a job in the order of its blocks.
///
/// A job that can be restarted writes into its file directly, since a restart goes on there. Any
/// other job's file appears only when the job is done: until then the data stands in NAME.part,
/// which goes when the job fails.
class JobOutput {
 public:
  /// Checks that the file can be written and touches nothing of its content before start(). A file
  /// that was not there before is not left behind unless start() was reached.
  /// "-" is standard output.
  static JobOutput forJob(const std::string& path, bool restartable);
  /// A file that an earlier run of the job has begun. Throws ToolError unless it is proved to be
  /// the one that the state counts.
  static JobOutput forRestart(const JobState& state);

  JobOutput(JobOutput&&) = default;
  ~JobOutput() { abandon(); }

  /// Empties the file, or cuts it back to the length kept.
  void start();
  void write(std::span<const std::byte> block);
  void cutTo(std::uint64_t length);
  void flushToDisk() { file_->flushToDisk(); }
  /// The data is whole: gives the file its name.
  void finish();
  /// Closes the file, and deletes what nobody can use.
  void abandon();

  const std::string& path() const noexcept { return path_; }
  std::uint64_t length() const noexcept { return length_; }
  /// Bytes in front of the block written last.
  std::uint64_t lengthBeforeLastBlock() const noexcept { return lengthBeforeLastBlock_; }
  /// The file that holds the beginning of the data after a failure; empty when there is none.
  std::string incompleteFile() const;

 private:
  JobOutput() = default;

  std::string path_;
  std::string partPath_;  // empty: the file is written directly
  std::optional<tools::OutputFile> file_;
  bool standardOutput_ = false;
  bool created_ = false;  // the file itself, by us
  bool started_ = false;
  bool finished_ = false;
  std::uint64_t length_ = 0;
  std::uint64_t lengthBeforeLastBlock_ = 0;
};

}  // namespace tallow::host
