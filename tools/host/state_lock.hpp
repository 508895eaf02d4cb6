// One tallow-host at a time for one state file.
#pragma once

#include <stdexcept>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::host {

/// Another process works with the state; the text is one line.
class StateInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Holds STATE.lock open, which holds the number of our process. The system removes the file when
/// the process ends, however it ends.
class StateLock {
 public:
  /// Throws StateInUse, or ToolError when the file cannot be made.
  explicit StateLock(const std::string& statePath);

 private:
  tools::UniqueFileHandle file_;
};

}  // namespace tallow::host
