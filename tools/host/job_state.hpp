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

// The content of a state file, which is JSON with these names. Texts are UTF-8.
struct JobState {
  std::string pipe;
  std::string output;  // full path
  std::string init;    // the initialisation string as the user gave it
  std::vector<Attribute> attributes;
  std::uint64_t checkpointEvery = 0;  // blocks
  std::uint32_t blockSize = 0;        // bytes
  std::uint64_t position = 0;         // what GetPos returned
  std::uint64_t outputLength = 0;  // bytes of the output before the block of that position, which
                                   // comes again after a restart; all bytes once finished
  std::string outputFile;          // which file the output was, and the MD5 of the end of those
  std::string outputEnd;           // bytes; see OutputProof
  bool finished = false;           // the end of the data has been reached and written
};

// Whether a file or anything else of that name exists.
bool stateExists(const std::string& path);
// Throws ToolError if the file cannot be read, is not a state of a job, or has numbers that do not
// fit each other.
JobState loadState(const std::string& path);
// Deletes the state of an earlier job, if there is one.
void removeState(const std::string& path);
// Replaces the file in one step and forces it to the disk.
void saveState(const std::string& path, const JobState& state);

}  // namespace tallow::host
