// What tallow-host prints at the end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/module.hpp"
#include "common/tool_error.hpp"
#include "host/job.hpp"
#include "host/plan.hpp"
#include "host/settings.hpp"

namespace tallow::host {

struct Outcome {
  tools::ExitStatus status = tools::ExitStatus::kFailed;
  bool isStoppedByUser = false;  // Ctrl-C
  std::optional<client::Identity> module;
  JobCounts counts;
  std::string error;                             // one line in UTF-8; empty if nothing went wrong
  std::optional<client::RequestFailed> request;  // the request that failed, if it was one
};

// The command that continues the job of a state file.
std::string restartCommand(const Settings& settings);

// Prints the summary, or the JSON object, and the error.
void printReport(const Settings& settings, const JobPlan& plan, const Outcome& outcome);

}  // namespace tallow::host
