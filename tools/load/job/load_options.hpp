// What a load is asked to do.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "load/job/job_record.hpp"
#include "load/job/protocol.hpp"
#include "load/job/reject_limit.hpp"

namespace tallow::load {

// Texts are UTF-8.
struct LoadOptions {
  std::string connection;
  JobSettings settings;
  std::string job;
  std::vector<std::string> columns;  // empty: those of the header or of the table
  bool header = false;
  bool create = false;
  std::uint64_t checkpointEvery = 16;  // blocks
  std::size_t batch = 0;               // rows in a statement; 0: as many as suit the columns
  std::string rejects;
  RejectLimit maxRejects;
  unsigned retrySeconds = 60;
  std::uint64_t waitSeconds = 0;  // that the writer may take for a block; 0: no limit
  RunMode mode = RunMode::kNew;
  bool rowsRemoved = false;  // the user says that none of the job's rows are in the table any more
  bool json = false;
  std::string module;
  std::string libpqFile;  // empty if nobody has named one
  std::string sameCommand;
  std::string restartCommand;
};

}  // namespace tallow::load
