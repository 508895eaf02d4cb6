// Deciding whether an existing file can serve a restart of this job.
#pragma once

#include <string>

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

// How a file came to be looked at; a refusal is an error only for a file that the user named.
enum class Candidate { kExplicit, kFound };

// Reads header and sync area. When they are this job's the stream, the header and the sync points
// are taken into file and the stream is put at the data start (when that fails it is closed, and
// the file counts as taken over all the same). The data area is not looked at.
bool validate(FallbackFile& file, FileStream stream, const std::string& name, Candidate candidate,
              const config::OptionsRecord& options);

// Logs a pair of sync points at level 6, each with its block number in the caller's line.
enum class SyncPointLine { kRead, kWriting };
void logSyncPoints(const SyncPoints& points, SyncPointLine line);

}  // namespace tallow::fallback
