#include "host/explain.hpp"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "common/init_string.hpp"
#include "common/text.hpp"
#include "config/directory_state.hpp"

namespace tallow::host {
namespace {

using config::Options;
using nlohmann::ordered_json;
using tools::ExplainedOption;
using tools::InitStringReport;

config::DirectoryState lookAt(const std::string& path) {
  return config::directoryState(tools::toAnsi(path).c_str());
}

bool isGood(const InitStringReport& report) {
  return report.accepted() &&
         std::all_of(report.options.begin(), report.options.end(),
                     [](const ExplainedOption& option) { return option.good; });
}

ordered_json toJson(const InitStringReport& report) {
  ordered_json options = ordered_json::array();
  for (const ExplainedOption& option : report.options) {
    options.push_back({{"keyword", option.keyword},
                       {"option", option.canonical.empty() ? ordered_json(nullptr)
                                                           : ordered_json(option.canonical)},
                       {"value", option.value},
                       {"good", option.good},
                       {"text", option.text}});
  }
  const Options& effective = report.effective;
  return {{"accepted", report.accepted()},
          {"options", options},
          {"ending", report.ending},
          {"inForce",
           {{"Need_Full_Block", effective.needFullBlock},
            {"Pipe_Wait", effective.pipeWait},
            {"Block_size", effective.blockSize},
            {"Fallback_file", effective.fallbackFile},
            {"Fallback_Directory", effective.fallbackDirectory},
            {"Signature_check", effective.signatureCheck},
            {"Log_directory", effective.logDirectory},
            {"Log_level", effective.logLevel},
            {"No_FallBack", effective.noFallback}}}};
}

std::string written(const ExplainedOption& option) {
  const std::string& name = option.canonical.empty() ? option.keyword : option.canonical;
  const bool showValue = !option.value.empty() && option.canonical != "No_FallBack";
  return showValue ? name + "=" + option.value : name;
}

void printText(const InitStringReport& report) {
  std::size_t width = 0;
  for (const auto& option : report.options) width = std::max(width, written(option).size());
  for (const ExplainedOption& option : report.options) {
    std::printf("%s  %-*s  %s\n", option.good ? "ok   " : "WRONG", static_cast<int>(width),
                written(option).c_str(), option.text.c_str());
  }
  if (!report.ending.empty()) {
    std::printf("%s  %s\n", report.endsTheParse ? "WRONG" : "note ", report.ending.c_str());
  }
  if (report.options.empty() && report.ending.empty()) std::printf("no options: all defaults\n");
  if (!report.accepted()) {
    std::printf("The module refuses this string.\n");
    return;
  }
  if (!isGood(report)) std::printf("The module takes this string, but not as it is meant.\n");
  const Options& effective = report.effective;
  std::printf(
      "In force: blocks of %llu byte%s%s, %s, Signature_check %u, Pipe_Wait %llu ms, log %s.\n",
      effective.blockSize, effective.blockSize == 1 ? "" : "s",
      effective.needFullBlock ? "" : " at most",
      effective.noFallback ? "no fallback file" : "fallback file from the first checkpoint",
      effective.signatureCheck, effective.pipeWait,
      effective.logLevel == 0 ? "off" : ("level " + std::to_string(effective.logLevel)).c_str());
}

}  // namespace

tools::ExitStatus printExplanation(const std::string& initString, bool json) {
  const InitStringReport report = tools::explainInitString(initString, lookAt);
  if (json) {
    std::printf("%s\n", toJson(report).dump(2).c_str());
  } else {
    printText(report);
  }
  return isGood(report) ? tools::ExitStatus::kDone : tools::ExitStatus::kFailed;
}

}  // namespace tallow::host
