#include "host/job_state.hpp"

#include <windows.h>

#include <nlohmann/json.hpp>

#include "common/output_file.hpp"
#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "config/options_record.hpp"

namespace tallow::host {
namespace {

using nlohmann::ordered_json;

constexpr const char* kFormat = "tallow-host state 2";
constexpr std::uint64_t kLargestStateFile = 1U << 20;

constexpr std::uint64_t kLargestNumber = std::uint64_t{1} << 62;

// Thrown and caught in this file: the content is not a state.
struct Unfit {};

// The value must be a whole number in the range, not negative and without a fraction.
std::uint64_t numberOf(const ordered_json& json, const char* name, std::uint64_t lowest,
                       std::uint64_t highest) {
  const ordered_json& item = json.at(name);
  if (!item.is_number_unsigned()) throw Unfit{};
  const auto number = item.get<std::uint64_t>();
  if (number < lowest || number > highest) throw Unfit{};
  return number;
}

// The output cannot be longer than the blocks that it counts.
void requireFittingLength(const JobState& state) {
  const std::uint64_t comesAgain = state.finished || state.position == 0 ? 0 : 1;
  const std::uint64_t blocks = state.position - comesAgain;
  const std::uint64_t needed = (state.outputLength + state.blockSize - 1) / state.blockSize;
  if (needed > blocks) throw Unfit{};
}

JobState fromJson(const ordered_json& json) {
  JobState state;
  state.pipe = json.at("pipe").get<std::string>();
  state.output = json.at("output").get<std::string>();
  state.init = json.at("init").get<std::string>();
  for (const auto& item : json.at("attributes")) {
    state.attributes.push_back(
        {item.at("name").get<std::string>(), item.at("value").get<std::string>()});
  }
  state.checkpointEvery = numberOf(json, "checkpointEvery", 1, kLargestNumber);
  state.blockSize =
      static_cast<std::uint32_t>(numberOf(json, "blockSize", 1, config::kLargestBlockSize));
  state.position = numberOf(json, "position", 0, kLargestNumber);
  state.outputLength = numberOf(json, "outputLength", 0, kLargestNumber);
  state.outputFile = json.at("outputFile").get<std::string>();
  state.outputEnd = json.at("outputEnd").get<std::string>();
  state.finished = json.at("finished").get<bool>();
  requireFittingLength(state);
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
          {"outputFile", state.outputFile},
          {"outputEnd", state.outputEnd},
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
    // The error below covers everything that is not a state.
  } catch (const Unfit&) {
    // The same.
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
