// tallow-host: the reference host. Loads the module, reads a pipe to its end, keeps checkpoints.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "common/module.hpp"
#include "common/program.hpp"
#include "common/text.hpp"
#include "host/explain.hpp"
#include "host/interrupt.hpp"
#include "host/job.hpp"
#include "host/plan.hpp"
#include "host/report.hpp"
#include "host/settings.hpp"

namespace tallow::host {
namespace {

using tools::ExitStatus;

std::filesystem::path modulePath(const Settings& settings) {
  if (settings.module.empty()) return client::Module::besideProgram();
  return tools::toWide(settings.module);
}

bool canBeRestarted(const JobPlan& plan, const JobCounts& counts) {
  return plan.restartPossible && counts.recordedPosition.has_value();
}

/// A host that dies between its note of the end and Close leaves the fallback file behind.
void removeLeftFallbackFile(const JobPlan& plan) {
  const bool isToStay =
      std::any_of(plan.attributes.begin(), plan.attributes.end(), [](const Attribute& attribute) {
        return attribute.name == "PRESERVE_RESTART_INFO" && attribute.value == "YES";
      });
  if (isToStay || plan.ownFallbackFile.empty()) return;
  std::error_code ignored;  // the job is done all the same
  std::filesystem::remove(tools::toWide(plan.ownFallbackFile), ignored);
}

/// What is left behind by a job that did not come to its end, and how to go on.
std::string afterwards(const Settings& settings, const JobPlan& plan, const JobCounts& counts,
                       const std::string& incompleteFile) {
  std::string text;
  if (!incompleteFile.empty()) text += "; " + incompleteFile + " holds only a part of the data";
  if (canBeRestarted(plan, counts)) text += "; go on with: " + restartCommand(settings);
  return text;
}

void runJob(const Settings& settings, const JobPlan& plan, Outcome& outcome) {
  std::optional<client::Module> module;
  std::optional<Interrupt> interrupt;
  std::optional<Job> job;
  const auto fail = [&](const std::string& text) {
    if (job) outcome.counts = job->counts();
    outcome.error = text + afterwards(settings, plan, outcome.counts,
                                      job ? job->incompleteFile() : std::string());
  };
  try {
    module.emplace(modulePath(settings));
    outcome.module = module->identify();
    interrupt.emplace();
    job.emplace(plan, *module, *interrupt);
    const JobEnd end = job->run();
    outcome.counts = job->counts();
    if (end == JobEnd::kDone) {
      outcome.status = ExitStatus::kDone;
    } else if (canBeRestarted(plan, outcome.counts)) {
      outcome.status = ExitStatus::kRestartable;
      fail("stopped by Ctrl-C");
    } else {
      fail("stopped by Ctrl-C; no checkpoint was recorded, so the job has to start over");
    }
  } catch (const RequestRefused& error) {
    outcome.request = error.request();
    outcome.counts = job->counts();
    outcome.error = error.what();
  } catch (const client::RequestFailed& error) {
    outcome.request = error;
    fail(tools::ansiToUtf8(error.what()));
  } catch (const std::bad_alloc&) {
    fail("out of memory; use a smaller Block_size or close other programs");
  } catch (const std::exception& error) {
    fail(error.what());
  }
}

ExitStatus run(std::vector<std::string> arguments) {
  Settings settings;
  if (const auto status = readCommandLine(std::move(arguments), settings)) return *status;
  if (settings.explain) return printExplanation(*settings.explain, settings.json);

  const JobPlan plan = makePlan(settings);
  for (const std::string& warning : plan.warnings) tools::printError("warning: " + warning);
  Outcome outcome;
  if (plan.restart && plan.restart->finished) {
    removeLeftFallbackFile(plan);
    outcome.status = ExitStatus::kDone;
    outcome.counts.blockSize = plan.restart->blockSize;
    outcome.counts.blocks = plan.restart->position;
    outcome.counts.outputBytes = plan.restart->outputLength;
    outcome.counts.recordedPosition = plan.restart->position;
  } else {
    runJob(settings, plan, outcome);
  }
  printReport(settings, plan, outcome);
  return outcome.status;
}

}  // namespace
}  // namespace tallow::host

int wmain(int argc, wchar_t** argv) {
  return tallow::tools::runProgram("tallow-host", argc, argv, tallow::host::run);
}
