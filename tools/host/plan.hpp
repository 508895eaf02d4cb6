// What a job is to do, put together from the command line and, on a restart, the state file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/init_string.hpp"
#include "host/job_state.hpp"
#include "host/settings.hpp"

namespace tallow::host {

struct JobPlan {
  std::string pipe;
  std::string output;  // full path, or "-"
  std::string userInit;
  std::string moduleInit;  // userInit, with a name for the fallback file in front when it needs one
  std::string ownFallbackFile;  // full path of the file of that name; empty when the user named it
  std::vector<Attribute> attributes;
  std::string statePath;  // empty: none
  std::uint64_t checkpointEvery = 0;
  std::uint64_t rewindAfter = 0;
  bool closeR = false;
  bool restartPossible = false;  // a state is kept, and the options let a restart use it
  std::optional<JobState> restart;
  std::vector<std::string> warnings;

  bool keepsState() const noexcept { return !statePath.empty(); }
};

/// Throws MisuseError when the command line and the state contradict each other or ask for a
/// restart that cannot work, ToolError when the state cannot be read.
JobPlan makePlan(const Settings& settings);

}  // namespace tallow::host
