#include "host/job_state.hpp"

#include <windows.h>

#include <nlohmann/json.hpp>

#include "common/output_file.hpp"
#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::host {
namespace {

using nlohmann::ordered_json;

constexpr const char* kFormat = "tallow-host state 1";
constexpr std::uint64_t kLargestStateFile = 1U << 20;

JobState fromJson(const ordered_json& json) {
  JobState state;
  state.pipe = json.at("pipe").get<std::string>();
  state.output = json.at("output").get<std::string>();
  state.init = json.at("init").get<std::string>();
  for (const auto& item : json.at("attributes")) {
    state.attributes.push_back(
        {item.at("name").get<std::string>(), item.at("value").get<std::string>()});
  }
  state.checkpointEvery = json.at("checkpointEvery").get<std::uint64_t>();
  state.blockSize = json.at("blockSize").get<std::uint32_t>();
  state.position = json.at("position").get<std::uint64_t>();
  state.outputLength = json.at("outputLength").get<std::uint64_t>();
  state.finished = json.at("finished").get<bool>();
  return state;
}

ordered_json toJson(const JobState& state) {
  ordered_json attributes = ordered_json::array();
  for (const Attribute& attribute : state.attributes) {
    attributes.push_back({{"name", attribute.name}, {"value", attribute.value}});
  }
  return {{"format", kFormat},
          {"pipe", state.pipe},
          {"output", state.output},
          {"init", state.init},
          {"attributes", attributes},
          {"checkpointEvery", state.checkpointEvery},
          {"blockSize", state.blockSize},
          {"position", state.position},
          {"outputLength", state.outputLength},
          {"finished", state.finished}};
}

}  // namespace

bool stateExists(const std::string& path) {
  return GetFileAttributesW(tools::toWide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

JobState loadState(const std::string& path) {
  const std::string text = tools::readTextFile(path, kLargestStateFile);
  try {
    const ordered_json json = ordered_json::parse(text);
    if (json.at("format").get<std::string>() == kFormat) return fromJson(json);
  } catch (const nlohmann::json::exception&) {
    // Falls through to the one answer for everything that is no state.
  }
  throw tools::ToolError(path +
                         " is damaged or no state file of tallow-host; name another with --state, "
                         "or start the job over with --new");
}

void removeState(const std::string& path) {
  tools::removeFile(path);
}

void saveState(const std::string& path, const JobState& state) {
  tools::replaceFile(path, toJson(state).dump(2) + "\n");
}

}  // namespace tallow::host
