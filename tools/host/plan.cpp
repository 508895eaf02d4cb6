#include "host/plan.hpp"

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <string_view>

#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::host {
namespace {

using tools::MisuseError;

/// Blocks between two checkpoints of a job that keeps a state and does not say how many.
constexpr std::uint64_t kUsualCheckpointDistance = 64;

std::string fullPath(const std::string& path) {
  if (path == "-") return path;
  return tools::toUtf8(std::filesystem::absolute(tools::toWide(path)).wstring());
}

/// Names the fallback file beside the state file. Stands in front of the user's own options, so
/// that these keep their meaning whatever they end with, and a folder that they name wins. The
/// module finds a file again in any working folder only when it is named.
void nameFallbackFile(JobPlan& plan, const EffectiveOptions& options) {
  const std::filesystem::path state = std::filesystem::absolute(tools::toWide(plan.statePath));
  const std::string folder = tools::toUtf8(state.parent_path().wstring());
  const std::string name = tools::toUtf8(state.filename().wstring()) + ".fbf";
  plan.moduleInit =
      "Fallback_Directory=\"" + folder + "\" Fallback_file=\"" + name + "\" " + plan.userInit;
  plan.ownFallbackFile = fullPath(
      (options.fallbackDirectory.empty() ? folder : options.fallbackDirectory) + "\\" + name);
}

void requireStateFolder(const std::string& statePath) {
  std::error_code error;
  const std::filesystem::path state = std::filesystem::absolute(tools::toWide(statePath));
  if (std::filesystem::is_directory(state.parent_path(), error)) return;
  throw tools::ToolError("cannot write " + statePath +
                         ": its folder does not exist; create it or name another with --state");
}

void refuseOneFileForTwo(const JobPlan& plan) {
  if (!plan.keepsState()) return;
  const std::wstring state = tools::toWide(fullPath(plan.statePath));
  if (_wcsicmp(state.c_str(), tools::toWide(plan.output).c_str()) != 0) return;
  throw MisuseError("--state and --out name the same file; give each its own");
}

void refuseFreshRunOverState(const Settings& settings) {
  if (settings.state.empty() || settings.startOver || !stateExists(settings.state)) return;
  throw MisuseError(settings.state +
                    " holds a job already; go on with it (--restart) or start it over (--new)");
}

bool hasTimeout(const std::vector<Attribute>& attributes) {
  return std::any_of(attributes.begin(), attributes.end(), [](const Attribute& attribute) {
    return attribute.name == "TIMEOUT_SECONDS";
  });
}

/// Takes what the command line leaves out from the state; what it gives must fit.
void takeUpState(JobPlan& plan, const Settings& settings) {
  JobState state = loadState(settings.state);
  if (settings.pipe && *settings.pipe != state.pipe) {
    throw MisuseError("the job in " + settings.state + " reads " + state.pipe +
                      "; leave --pipe out or name that one");
  }
  if (settings.output && fullPath(*settings.output) != state.output) {
    throw MisuseError("the job in " + settings.state + " writes " + state.output +
                      "; leave --out out or name that one");
  }
  plan.pipe = state.pipe;
  plan.output = state.output;
  plan.userInit = settings.init.value_or(state.init);
  plan.attributes = settings.attributes.empty() ? state.attributes : settings.attributes;
  if (plan.checkpointEvery == 0) plan.checkpointEvery = state.checkpointEvery;
  plan.restart = std::move(state);
}

void refuseHopelessRestart(const JobPlan& plan, const EffectiveOptions& options) {
  if (!plan.restart || plan.restart->finished) return;
  if (!options.needFullBlock) {
    throw MisuseError(
        "a job with Need_Full_Block off cannot be restarted; start it over with --new");
  }
  if (options.noFallback) {
    throw MisuseError(
        "a job with No_FallBack cannot be restarted; start it over with --new, without that "
        "option");
  }
  if (options.blockSize != plan.restart->blockSize) {
    throw MisuseError(
        "the job was begun with Block_size=" + std::to_string(plan.restart->blockSize) +
        " and cannot be restarted with another block size");
  }
}

void addWarnings(JobPlan& plan, const EffectiveOptions& options) {
  if (plan.keepsState() && !options.needFullBlock) {
    plan.warnings.emplace_back("this job cannot be restarted: Need_Full_Block is off");
  }
  if (plan.keepsState() && options.noFallback) {
    plan.warnings.emplace_back("this job cannot be restarted: No_FallBack is set");
  }
  if (!options.needFullBlock && hasTimeout(plan.attributes)) {
    plan.warnings.emplace_back(
        "a writer that pauses longer than TIMEOUT_SECONDS ends the data as if it were whole, "
        "since Need_Full_Block is off");
  }
}

}  // namespace

JobPlan makePlan(const Settings& settings) {
  JobPlan plan;
  plan.statePath = settings.state;
  plan.checkpointEvery = settings.checkpointEvery;
  plan.rewindAfter = settings.rewindAfter;
  plan.closeR = settings.closeR;
  if (settings.restart) {
    takeUpState(plan, settings);
  } else {
    refuseFreshRunOverState(settings);
    if (plan.keepsState()) requireStateFolder(plan.statePath);
    plan.pipe = *settings.pipe;
    plan.output = fullPath(*settings.output);
    plan.userInit = settings.init.value_or("");
    plan.attributes = settings.attributes;
    if (plan.keepsState() && plan.checkpointEvery == 0) {
      plan.checkpointEvery = kUsualCheckpointDistance;
    }
  }
  refuseOneFileForTwo(plan);
  const EffectiveOptions options = explainInitString(plan.userInit).effective;
  const bool namesFile = plan.keepsState() && !options.noFallback && options.fallbackFile.empty();
  plan.moduleInit = plan.userInit;
  if (namesFile) nameFallbackFile(plan, options);
  plan.restartPossible = plan.keepsState() && options.needFullBlock && !options.noFallback;
  refuseHopelessRestart(plan, options);
  addWarnings(plan, options);
  return plan;
}

}  // namespace tallow::host
