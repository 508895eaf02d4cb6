#include "host/report.hpp"

#include <tallow/error.hpp>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "common/formatting.hpp"
#include "common/program.hpp"
#include "common/quoting.hpp"
#include "common/text.hpp"

namespace tallow::host {
namespace {

using nlohmann::ordered_json;
using tools::ExitStatus;

ordered_json orNull(const std::optional<std::uint64_t>& number) {
  return number ? ordered_json(*number) : ordered_json(nullptr);
}

ordered_json moduleJson(const Outcome& outcome) {
  if (!outcome.module) return nullptr;
  ordered_json components = ordered_json::array();
  for (const client::ComponentVersion& component : outcome.module->components) {
    components.push_back({{"name", component.name}, {"version", component.version}});
  }
  return {{"name", outcome.module->name},
          {"version", outcome.module->version},
          {"components", components}};
}

ordered_json errorJson(const Outcome& outcome) {
  if (outcome.error.empty()) return nullptr;
  ordered_json error = {{"text", outcome.error}, {"request", nullptr}};
  if (outcome.request) {
    error["request"] = {{"name", requestName(outcome.request->request())},
                        {"returnCode", outcome.request->code()},
                        {"returnCodeName", tallow_code_name(outcome.request->code())},
                        {"failureText", tools::ansiToUtf8(outcome.request->failureText())}};
  }
  return error;
}

bool canBeRestarted(const Outcome& outcome) {
  return outcome.status == ExitStatus::kRestartable || outcome.status == ExitStatus::kMendFirst;
}

ordered_json toJson(const Settings& settings, const JobPlan& plan, const Outcome& outcome) {
  const JobCounts& counts = outcome.counts;
  const double rate = counts.deliverySeconds > 0
                          ? static_cast<double>(counts.readBytes) / counts.deliverySeconds
                          : 0;
  std::vector<std::string> warnings = plan.warnings;
  warnings.insert(warnings.end(), counts.warnings.begin(), counts.warnings.end());
  return {{"status", tools::statusWord(outcome.status)},
          {"exitStatus", static_cast<int>(outcome.status)},
          {"module", moduleJson(outcome)},
          {"pipe", plan.pipe},
          {"output", plan.output},
          {"init", plan.moduleInit},
          {"blockSize", counts.blockSize},
          {"blocks", counts.blocks},
          {"bytes", counts.outputBytes},
          {"seconds", counts.seconds},
          {"bytesPerSecond", rate},
          {"checkpoints", counts.checkpoints},
          {"rewound", counts.rewound},
          {"restartedFrom", plan.restart ? ordered_json(plan.restart->position) : nullptr},
          {"recordedPosition", orNull(counts.recordedPosition)},
          {"restart", canBeRestarted(outcome) ? ordered_json(restartCommand(settings)) : nullptr},
          {"warnings", warnings},
          {"error", errorJson(outcome)}};
}

void printSummary(std::FILE* stream, const JobPlan& plan, const Outcome& outcome) {
  const JobCounts& counts = outcome.counts;
  if (plan.restart && plan.restart->finished) {
    std::fprintf(stream, "the job in %s is done already: nothing to restart\n",
                 plan.statePath.c_str());
    return;
  }
  std::string text = outcome.status == ExitStatus::kDone ? "done: " : "stopped: ";
  text += tools::formatCount(counts.blocks, "block");
  text += ", " + tools::formatBytes(counts.outputBytes);
  text += " in " + tools::formatDuration(counts.seconds);
  text += " (" + tools::formatRate(counts.readBytes, counts.deliverySeconds) + ")";
  if (counts.checkpoints > 0) text += ", " + tools::formatCount(counts.checkpoints, "checkpoint");
  if (plan.restart) text += ", restarted from block " + std::to_string(plan.restart->position);
  if (counts.rewound) text += ", rewound once";
  if (outcome.module) text += ", " + outcome.module->name + " " + outcome.module->version;
  std::fprintf(stream, "%s\n", text.c_str());
}

}  // namespace

std::string restartCommand(const Settings& settings) {
  std::string command =
      "tallow-host --state " + tools::quotedArgument(settings.state) + " --restart";
  const auto addText = [&command](const char* option, const std::string& text) {
    if (!text.empty()) command += option + tools::quotedArgument(text);
  };
  addText(" --writer ", settings.writer);
  addText(" --in ", settings.input);
  if (settings.expectBytes != 0) {
    command += " --expect-bytes " + std::to_string(settings.expectBytes);
  }
  if (settings.wait != 0) command += " --wait " + std::to_string(settings.wait);
  addText(" --module ", settings.module);
  return command;
}

void printReport(const Settings& settings, const JobPlan& plan, const Outcome& outcome) {
  // Standard output may carry the data.
  std::FILE* const stream = plan.writesToStandardOutput() ? stderr : stdout;
  if (settings.json) {
    std::fprintf(stream, "%s\n",
                 toJson(settings, plan, outcome)
                     .dump(2, ' ', false, nlohmann::detail::error_handler_t::replace)
                     .c_str());
  } else if (outcome.error.empty() || (canBeRestarted(outcome) && outcome.counts.blockSize != 0)) {
    printSummary(stream, plan, outcome);
  }
  if (!outcome.error.empty()) tools::printError(outcome.error);
}

}  // namespace tallow::host
