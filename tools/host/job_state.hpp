// The host's own record of a job: where it can be restarted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tallow::host {

struct Attribute {
  std::string name;
  std::string value;
};

/// Content of a state file, which is JSON with these names. Texts are UTF-8.
struct JobState {
  std::string pipe;
  std::string output;  // full path
  std::string init;    // the initialisation string as the user gave it
  std::vector<Attribute> attributes;
  std::uint64_t checkpointEvery = 0;  // blocks
  std::uint32_t blockSize = 0;        // bytes
  std::uint64_t position = 0;         // what GetPos answered
  std::uint64_t outputLength = 0;  // bytes of the output before the block of that position, which
                                   // comes again after a restart; all bytes once finished
  std::string outputFile;          // which file the output was, and the MD5 of the end of those
  std::string outputEnd;           // bytes; see OutputProof
  bool finished = false;           // the end of the data has been reached and written
};

/// Whether a file of that name is there, of whatever kind.
bool stateExists(const std::string& path);
/// Throws ToolError when the file cannot be read or is no state of a job, and when its numbers do
/// not fit each other.
JobState loadState(const std::string& path);
/// No state of an earlier job is left behind.
void removeState(const std::string& path);
/// Replaces the file in one step, forced to disk.
void saveState(const std::string& path, const JobState& state);

}  // namespace tallow::host
