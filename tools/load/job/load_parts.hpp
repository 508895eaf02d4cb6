// What a load is made of while it begins and while it runs.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "load/job/job_session.hpp"
#include "load/job/job_store.hpp"
#include "load/job/load_options.hpp"
#include "load/job/pacing.hpp"
#include "load/job/protocol.hpp"
#include "load/job/writer_watch.hpp"

namespace tallow::load {

// What a load has done, for the summary.
struct LoadReport {
  JobProgress progress;          // what is committed
  std::uint64_t rowsBefore = 0;  // of these, committed by earlier runs
  std::uint64_t reconnections = 0;
  std::uint64_t rewinds = 0;              // returns to the checkpoint within the run
  bool wasDone = false;                   // an earlier run had finished the job
  bool nothingBegun = true;               // run the same command again, not a restart
  std::optional<bool> endsWithLineBreak;  // known if this run has seen the end of the data
};

// Where the load is, for the display.
struct LoadPulse {
  std::uint64_t bytes = 0;
  std::uint64_t block = 0;
  std::uint64_t rows = 0;
  std::uint64_t rejects = 0;
  std::uint64_t checkpoint = 0;  // block
};

// Called on the load's thread.
struct LoadEvents {
  std::function<void(const LoadPulse&)> pulse;
  // From now on the load can be restarted. It begins to wait for this.
  std::function<void(const std::string& what)> wait;
};

struct LoadParts {
  // Does not connect yet.
  LoadParts(const LoadOptions& loadOptions, DatabaseFactory makeConnection, LoadEvents loadEvents,
            WriterWatch& writerWatch);

  // Whether the fault passes with a new connection.
  bool isLost(const DatabaseError& error) const {
    return error.fault() == Fault::kLost || store.isDead();
  }
  // Why the fallback file cannot serve a restart at this position, in words that follow its name.
  // Empty if it can.
  std::string fallbackFault(std::uint64_t position) const;
  bool isFallbackFileGone() const;
  // Deletes the fallback file. If that fails, it only takes up room.
  void dropFallbackFile() const;

  const LoadOptions& options;
  LoadEvents events;
  WriterWatch& writer;
  std::string initString;  // with the fallback file's name
  std::string fallbackPath;
  SqlJobStore store;
  JobSession session;
  Patience patience;
  std::optional<Beginning> beginning;  // what was decided about the job's row, once it was read
  std::optional<JobRecord> recorded;   // the job's row, as it was then
  LoadReport report;
};

// Where the module keeps the job's fallback file, in UTF-8. The module must accept the
// initialisation string, and the string must name the file.
std::string fallbackPathOf(const std::string& initString);

// Whether the string itself names the file. Such a file may be another job's by now.
bool namesFallbackFile(const std::string& initString);

// The initialisation string with a Fallback_file for this job, unless it names one already. The
// module finds a file that it named itself again only if its working directory is the file's
// folder.
std::string withFallbackFile(const std::string& initString, const std::string& job,
                             const std::string& pipe);

}  // namespace tallow::load
