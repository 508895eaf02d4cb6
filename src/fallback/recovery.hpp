// Choosing the fallback file of a job after its pipe has been opened, and finding one that an
// earlier run of the job has left.
#pragma once

#include <string>

#include "config/options_record.hpp"
#include "fallback/fallback_format.hpp"
#include "fallback/file_stream.hpp"

namespace tallow::fallback {

// What is known of a job's fallback file when the job begins.
struct Recovery {
  std::string name;                       // the path of the file, found or still to be created
  FileStream stream;                      // open after the sync area; empty: no file was found
  HeaderImage header = {};                // as read from the file that was found
  SyncPoints syncPoints = kNoSyncPoints;  // the same
  bool mayBeCreated = false;              // the first checkpoint may create the file
};

// Looks for a file whose header is the wanted one: under the name that the options give or, if they
// give none, in the fallback directory. Logs why a file is refused. The data area is not examined.
Recovery findRecovery(const HeaderImage& wanted, const config::OptionsRecord& options);

}  // namespace tallow::fallback
