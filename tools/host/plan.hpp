// What a job is to do, put together from the command line and, on a restart, the state file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/fallback_look.hpp"
#include "host/job_state.hpp"
#include "host/settings.hpp"

namespace tallow::host {

/// The job has nothing left to be restarted from.
class NothingToRestartFrom : public tools::ToolError {
 public:
  using ToolError::ToolError;
};

struct JobPlan {
  std::string pipe;
  std::string output;  // full path, or "-"
  std::string userInit;
  std::string moduleInit;  // userInit, with a name for the fallback file in front when it needs one
  std::string fallbackFile;        // where the module puts it; empty when no option names it
  bool namesFallbackFile = false;  // we do, not the user
  bool noFallback = false;         // the options want none
  tools::FallbackOwner fallbackOwner;
  std::vector<Attribute> attributes;
  std::string statePath;  // empty: none
  std::uint64_t checkpointEvery = 0;
  std::uint64_t rewindAfter = 0;
  std::uint64_t waitSeconds = 0;  // that a block of data may take; 0: for ever
  bool closeR = false;
  bool restartPossible = false;  // a state is kept, and the options let a restart use it
  std::optional<JobState> restart;
  std::vector<std::string> warnings;

  bool keepsState() const noexcept { return !statePath.empty(); }
  bool writesToStandardOutput() const noexcept { return output == "-"; }
};

/// Fills the plan as far as it gets. Throws MisuseError when the command line and the state
/// contradict each other or ask for a restart that cannot work, ToolError when the state cannot be
/// read. The state's lock must be held.
void makePlan(JobPlan& plan, const Settings& settings);

/// The pipe's name, byte for byte as the module is given it.
std::string pipeName(const JobPlan& plan);

/// Throws MisuseError unless the state file can be one: no folder, and in a folder that is there.
void requireStatePlace(const std::string& statePath);

/// What stands against a restart at a position that was recorded, as words to follow the name of
/// the fallback file; empty when nothing does.
std::string fallbackFileFault(const JobPlan& plan, std::uint64_t position);

/// Throws ToolError unless the fallback file is proved to be the one that the state was recorded
/// with.
void requireFallbackFile(const JobPlan& plan);

}  // namespace tallow::host
