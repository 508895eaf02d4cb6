// Deciding whether an existing file can serve a restart of this job.
#pragma once

#include <string>

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

// Why a file is examined. A refusal is an error only for a file that the user named.
enum class Candidate { kExplicit, kFound };

// Reads the header and the sync area. If they are this job's, file takes over the stream, the
// header and the sync points, and the stream goes to the start of the data area. If that fails the
// stream is closed, but the file still counts as taken over. The data area is not examined.
bool validate(FallbackFile& file, FileStream stream, const std::string& name, Candidate candidate,
              const config::OptionsRecord& options);

// Logs a pair of sync points at level 6. The line shows whether they were read or are about to be
// written.
enum class SyncPointLine { kRead, kWriting };
void logSyncPoints(const SyncPoints& points, SyncPointLine line);

}  // namespace tallow::fallback
