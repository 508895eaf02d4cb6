// How a tool ends, and the failure that ends it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tallow::tools {

// The exit statuses of all tools. A loop that calls a program again can rely on them.
enum class ExitStatus : int {
  kDone = 0,
  kFailed = 1,       // there is nothing to restart from
  kMisused = 2,      // the command line asks for what cannot work; nothing was started or changed
  kRestartable = 3,  // stopped; the same restart may help now
  kMendFirst = 4,    // stopped; a restart helps once what the error line says has been mended
};

// The status as --json shows it.
constexpr std::string_view statusWord(ExitStatus status) noexcept {
  switch (status) {
    case ExitStatus::kDone:
      return "done";
    case ExitStatus::kFailed:
      return "failed";
    case ExitStatus::kMisused:
      return "misused";
    case ExitStatus::kRestartable:
      return "restartable";
    case ExitStatus::kMendFirst:
      return "mendFirst";
  }
  return "failed";
}

// A failure that a person can act upon. The text is one line: what failed and what to do.
class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& text, ExitStatus status = ExitStatus::kFailed)
      : std::runtime_error(text), status_(status) {}
  ExitStatus status() const noexcept { return status_; }

 private:
  ExitStatus status_;
};

// A ToolError whose cause is the command line.
class MisuseError : public ToolError {
 public:
  explicit MisuseError(const std::string& text) : ToolError(text, ExitStatus::kMisused) {}
};

}  // namespace tallow::tools
