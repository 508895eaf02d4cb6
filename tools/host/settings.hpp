// The command line of tallow-host.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/tool_error.hpp"
#include "host/job_state.hpp"

namespace tallow::host {

// As given. A text that is not given is absent, so that a restart can take it from the state.
struct Settings {
  std::optional<std::string> pipe;
  std::optional<std::string> output;
  std::optional<std::string> init;
  std::vector<Attribute> attributes;
  std::string module;                 // empty: beside the program
  std::string state;                  // empty: no state file
  std::uint64_t checkpointEvery = 0;  // blocks; 0: not given
  std::uint64_t rewindAfter = 0;      // checkpoints; 0: never
  std::string writer;                 // command; empty: the writer is not ours
  std::string input;                  // file for a writer of ours; empty: none
  std::uint64_t expectBytes = 0;      // 0: not given
  std::uint64_t wait = 0;             // seconds; 0: no limit
  std::uint64_t attempts = 1;
  bool restart = false;
  bool resume = false;
  bool startOver = false;
  bool closeR = false;
  bool json = false;
  std::optional<std::string> explain;
};

// Fills `settings`. Returns the exit status if there is nothing more to do. Throws MisuseError.
std::optional<tools::ExitStatus> readCommandLine(std::vector<std::string> arguments,
                                                 Settings& settings);

}  // namespace tallow::host
