// tallow-host: the reference host. Loads the module, reads a pipe to its end, keeps checkpoints.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>
#include <thread>

#include "common/formatting.hpp"
#include "common/program.hpp"
#include "common/text.hpp"
#include "host/explain.hpp"
#include "host/job_run.hpp"
#include "host/plan.hpp"
#include "host/report.hpp"
#include "host/settings.hpp"
#include "host/state_lock.hpp"

namespace tallow::host {
namespace {

using tools::ExitStatus;

// A host that dies after it has noted the end of the data, but before Close, leaves the fallback
// file.
void removeLeftFallbackFile(const JobPlan& plan) {
  const bool isToStay =
      std::any_of(plan.attributes.begin(), plan.attributes.end(), [](const Attribute& attribute) {
        return attribute.name == "PRESERVE_RESTART_INFO" && attribute.value == "YES";
      });
  if (isToStay || !plan.namesFallbackFile) return;
  if (!tools::lookAtFallbackFile(plan.fallbackFile, plan.fallbackOwner, std::nullopt).empty()) {
    return;
  }
  std::error_code ignored;  // the job is done all the same
  std::filesystem::remove(tools::toWide(plan.fallbackFile), ignored);
}

void reportDoneAlready(const JobPlan& plan, Outcome& outcome) {
  removeLeftFallbackFile(plan);
  outcome.status = ExitStatus::kDone;
  outcome.counts.blockSize = plan.restart->blockSize;
  outcome.counts.blocks = plan.restart->position;
  outcome.counts.outputBytes = plan.restart->outputLength;
  outcome.counts.recordedPosition = plan.restart->position;
}

std::optional<StateLock> lockState(const Settings& settings) {
  if (settings.state.empty()) return std::nullopt;
  requireStatePlace(settings.state);
  try {
    return std::optional<StateLock>(std::in_place, settings.state);
  } catch (const StateInUse& error) {
    throw tools::ToolError(error.what(), settings.restart || settings.resume
                                             ? ExitStatus::kRestartable
                                             : ExitStatus::kMisused);
  }
}

void perform(const Settings& settings, JobPlan& plan, Outcome& outcome) {
  makePlan(plan, settings);
  for (const std::string& warning : plan.warnings) tools::printError("warning: " + warning);
  if (plan.restart && plan.restart->finished) {
    reportDoneAlready(plan, outcome);
  } else {
    runJob(settings, plan, outcome);
  }
}

// --resume: goes on if there is a job to go on with. The state's lock must be held.
void decide(Settings& settings) {
  settings.restart = stateExists(settings.state);
  if (settings.restart && loadState(settings.state).finished) return;  // the summary says so
  tools::printError(settings.restart ? "goes on with the job in " + settings.state
                                     : "starts a new job, kept in " + settings.state);
}

// One attempt, from the lock to the outcome.
void attempt(Settings& settings, JobPlan& plan, Outcome& outcome) {
  std::optional<StateLock> lock;
  try {
    lock = lockState(settings);
    if (settings.resume) decide(settings);
    perform(settings, plan, outcome);
  } catch (const tools::ToolError& error) {
    if (error.status() == ExitStatus::kMisused) throw;
    outcome.status = error.status();
    outcome.error = error.what();
  }
}

// The pause after so many attempts.
std::chrono::seconds pauseAfter(std::uint64_t attempts) {
  constexpr std::uint64_t kLongestPause = 60;
  return std::chrono::seconds(attempts > 6 ? kLongestPause
                                           : std::min(kLongestPause, 1ULL << (attempts - 1)));
}

void pause(const Settings& settings, std::uint64_t attempts, const Outcome& outcome) {
  const std::chrono::seconds pause = pauseAfter(attempts);
  tools::printError(outcome.error);
  tools::printError("attempt " + std::to_string(attempts) + " of " +
                    std::to_string(settings.attempts) + " failed; the next begins in " +
                    tools::formatCount(static_cast<std::uint64_t>(pause.count()), "second"));
  std::this_thread::sleep_for(pause);
}

ExitStatus run(std::vector<std::string> arguments) {
  Settings settings;
  if (const auto status = readCommandLine(std::move(arguments), settings)) return *status;
  if (settings.explain) return printExplanation(*settings.explain, settings.json);

  for (std::uint64_t attempts = 1;; ++attempts) {
    JobPlan plan;
    Outcome outcome;
    attempt(settings, plan, outcome);
    const bool mayPass = outcome.status == ExitStatus::kRestartable && !outcome.isStoppedByUser;
    if (!mayPass || attempts >= settings.attempts) {
      printReport(settings, plan, outcome);
      return outcome.status;
    }
    pause(settings, attempts, outcome);
  }
}

}  // namespace
}  // namespace tallow::host

int wmain(int argc, wchar_t** argv) {
  return tallow::tools::runProgram("tallow-host", argc, argv, tallow::host::run);
}
