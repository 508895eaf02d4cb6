// What a job is to do, taken from the command line and, at a restart, from the state file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/fallback_look.hpp"
#include "host/job_state.hpp"
#include "host/settings.hpp"

namespace tallow::host {

// There is nothing left from which the job can be restarted.
class NothingToRestartFrom : public tools::ToolError {
 public:
  using ToolError::ToolError;
};

struct JobPlan {
  std::string pipe;
  std::string output;  // full path, or "-"
  std::string userInit;
  std::string moduleInit;          // userInit, after a name for the fallback file if it needs one
  std::string fallbackFile;        // where the module puts it; empty if no option names it
  bool namesFallbackFile = false;  // we name it, not the user
  bool noFallback = false;         // the options switch it off
  tools::FallbackOwner fallbackOwner;
  std::vector<Attribute> attributes;
  std::string statePath;  // empty: none
  std::uint64_t checkpointEvery = 0;
  std::uint64_t rewindAfter = 0;
  std::string writerCommand;      // empty: the writer is not ours
  std::uint64_t expectBytes = 0;  // of the whole output; 0: any
  bool mayTryAgain = false;       // this process may run the job several times
  std::uint64_t waitSeconds = 0;  // that a block of data may take; 0: no limit
  bool closeR = false;
  bool restartPossible = false;  // a state is kept, and the options allow a restart
  std::optional<JobState> restart;
  std::vector<std::string> warnings;

  bool keepsState() const noexcept { return !statePath.empty(); }
  bool writesToStandardOutput() const noexcept { return output == "-"; }
};

// Fills the plan as far as possible. Throws MisuseError if the command line contradicts the state
// or asks for a restart that cannot work, and ToolError if the state cannot be read. The state's
// lock must be held.
void makePlan(JobPlan& plan, const Settings& settings);

// The pipe's name, byte for byte as the module gets it.
std::string pipeName(const JobPlan& plan);

// Throws MisuseError unless the state file can be made: it must not be a folder, and its own folder
// must exist.
void requireStatePlace(const std::string& statePath);

// Why the fallback file cannot serve a restart at a recorded position, in words that follow its
// name. Empty if it can.
std::string fallbackFileFault(const JobPlan& plan, std::uint64_t position);

// Throws ToolError unless the fallback file is proved to belong to the state.
void requireFallbackFile(const JobPlan& plan);

}  // namespace tallow::host
