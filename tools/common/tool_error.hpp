// How a tool ends, and the failure that ends it.
#pragma once

#include <stdexcept>
#include <string>

namespace tallow::tools {

/// Exit statuses of every tool.
enum class ExitStatus : int {
  kDone = 0,
  kFailed = 1,
  kMisused = 2,      // the command line is wrong; nothing was started
  kRestartable = 3,  // stopped, and there is a checkpoint to restart from
};

/// A failure that a person can act upon. The text is one line: what failed and what to do.
class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& text, ExitStatus status = ExitStatus::kFailed)
      : std::runtime_error(text), status_(status) {}
  ExitStatus status() const noexcept { return status_; }

 private:
  ExitStatus status_;
};

/// A ToolError that blames the command line.
class MisuseError : public ToolError {
 public:
  explicit MisuseError(const std::string& text) : ToolError(text, ExitStatus::kMisused) {}
};

}  // namespace tallow::tools
