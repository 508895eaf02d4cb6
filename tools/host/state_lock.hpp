// Lets only one tallow-host at a time work with a state file.
#pragma once

#include <stdexcept>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::host {

// Another process works with the state. The text is one line.
class StateInUse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Keeps STATE.lock open, which contains the number of our process. The system deletes the file when
// the process ends, however it ends.
class StateLock {
 public:
  // Throws StateInUse, or ToolError if the file cannot be made.
  explicit StateLock(const std::string& statePath);

 private:
  tools::UniqueFileHandle file_;
};

}  // namespace tallow::host
