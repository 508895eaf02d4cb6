#include "host/plan.hpp"

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <string_view>

#include "common/surroundings.hpp"
#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "common/writer_process.hpp"

namespace tallow::host {
namespace {

using tools::explainInitString;
using tools::MisuseError;

// How many blocks a job with a state delivers between two checkpoints, if the user does not say.
constexpr std::uint64_t kUsualCheckpointDistance = 64;

// "-" stands for standard output.
std::string fullPath(const std::string& path) {
  return path == "-" ? path : tools::fullPath(path);
}

// Names the fallback file beside the state file. The name comes before the user's own options, so
// that these keep their meaning whatever they end with, and a folder that they name takes effect.
// Only a named file is found again by the module in any working folder.
std::string withFallbackFile(const std::string& userInit, const std::string& statePath) {
  const std::filesystem::path state = std::filesystem::absolute(tools::toWide(statePath));
  return "Fallback_Directory=\"" + tools::toUtf8(state.parent_path().wstring()) +
         "\" Fallback_file=\"" + tools::toUtf8(state.filename().wstring()) + ".fbf\" " + userInit;
}

// With one of these attributes the module takes the pipe's name as UTF-8.
bool isPipeNameUtf8(const std::vector<Attribute>& attributes) {
  std::string charset;
  for (const Attribute& attribute : attributes) {
    if (attribute.name == "CHARSET_NAME") charset = attribute.value;
  }
  return charset == "UTF8" || charset == "UTF16";
}

std::string writerCommand(const Settings& settings, const std::string& pipe) {
  return settings.input.empty() ? settings.writer : tools::feedCommand(settings.input, pipe);
}

void refuseOneFileForTwo(const JobPlan& plan) {
  if (!plan.keepsState()) return;
  const std::wstring state = tools::toWide(fullPath(plan.statePath));
  if (_wcsicmp(state.c_str(), tools::toWide(plan.output).c_str()) != 0) return;
  throw MisuseError("--state and --out name the same file; give each its own");
}

// With --resume only the state file says whether they are needed.
void requireNamesOfNewJob(const Settings& settings) {
  if (settings.pipe && settings.output) return;
  throw MisuseError("there is no state file " + settings.state +
                    ", and a new job needs --pipe and --out");
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

// Takes from the state what the command line leaves out. What the command line gives must agree
// with the state.
void takeUpState(JobPlan& plan, const Settings& settings) {
  if (!stateExists(settings.state)) {
    throw MisuseError("there is no state file " + settings.state +
                      "; name the job's with --state, or start the job without --restart");
  }
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

void refuseHopelessRestart(const JobPlan& plan, const config::Options& options) {
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

void addWarnings(JobPlan& plan, const config::Options& options) {
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

// Where the options put the fallback file, and whether they make a restart possible.
void settleFallbackFile(JobPlan& plan) {
  config::Options options = explainInitString(plan.userInit).effective;
  plan.namesFallbackFile = plan.keepsState() && !options.noFallback && options.fallbackFile.empty();
  plan.moduleInit =
      plan.namesFallbackFile ? withFallbackFile(plan.userInit, plan.statePath) : plan.userInit;
  if (plan.namesFallbackFile) options = explainInitString(plan.moduleInit).effective;
  plan.noFallback = options.noFallback;
  if (!options.noFallback) plan.fallbackFile = tools::fallbackPath(options);
  plan.fallbackOwner = {pipeName(plan), static_cast<std::uint32_t>(options.blockSize)};
  plan.restartPossible = plan.keepsState() && options.needFullBlock && !options.noFallback;
  refuseHopelessRestart(plan, options);
  addWarnings(plan, options);
}

}  // namespace

std::string pipeName(const JobPlan& plan) {
  return isPipeNameUtf8(plan.attributes) ? plan.pipe : tools::toAnsi(plan.pipe);
}

void requireStatePlace(const std::string& statePath) {
  std::error_code error;
  const std::filesystem::path state = std::filesystem::absolute(tools::toWide(statePath));
  if (std::filesystem::is_directory(state, error)) {
    throw MisuseError(statePath + " is a folder; name a file with --state");
  }
  if (std::filesystem::is_directory(state.parent_path(), error)) return;
  throw MisuseError("cannot write " + statePath +
                    ": its folder does not exist; create it or name another with --state");
}

std::string fallbackFileFault(const JobPlan& plan, std::uint64_t position) {
  std::string fault = tools::lookAtFallbackFile(plan.fallbackFile, plan.fallbackOwner, position);
  // A restart at the beginning needs nothing from the file.
  if (position == 0 && fault == tools::kFallbackFileAbsent) fault.clear();
  return fault;
}

void requireFallbackFile(const JobPlan& plan) {
  const std::string fault = fallbackFileFault(plan, plan.restart->position);
  if (fault.empty()) {
    if (!tools::isFallbackFileHeld(plan.fallbackFile)) return;
    throw tools::ToolError("the fallback file " + plan.fallbackFile +
                               " is held by another process; end that, then restart",
                           tools::ExitStatus::kRestartable);
  }
  throw NothingToRestartFrom("the restart was refused: the fallback file " + plan.fallbackFile +
                             " " + fault + "; the output " + plan.output +
                             " is as it was; start over with --new");
}

void makePlan(JobPlan& plan, const Settings& settings) {
  plan.statePath = settings.state;
  plan.checkpointEvery = settings.checkpointEvery;
  plan.rewindAfter = settings.rewindAfter;
  plan.waitSeconds = settings.wait;
  plan.closeR = settings.closeR;
  if (settings.restart) {
    takeUpState(plan, settings);
  } else {
    refuseFreshRunOverState(settings);
    requireNamesOfNewJob(settings);
    plan.pipe = *settings.pipe;
    plan.output = fullPath(*settings.output);
    plan.userInit = settings.init.value_or("");
    plan.attributes = settings.attributes;
    if (plan.keepsState() && plan.checkpointEvery == 0) {
      plan.checkpointEvery = kUsualCheckpointDistance;
    }
  }
  plan.writerCommand = writerCommand(settings, plan.pipe);
  plan.expectBytes = settings.expectBytes;
  plan.mayTryAgain = settings.attempts > 1;
  refuseOneFileForTwo(plan);
  settleFallbackFile(plan);
}

}  // namespace tallow::host
