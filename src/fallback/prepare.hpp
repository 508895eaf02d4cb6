// Choosing the fallback file of a job after its pipe has been opened.
#pragma once

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

// Decides the file's name. True if an existing file was validated for recovery and taken over. The
// header and the sync points are then those of the file, and the stream is open at the start of the
// data area (or empty, if it could not be positioned). Otherwise the first checkpoint creates the
// file, if a name is free. header.pipeName must be set.
bool prepare(FallbackFile& file, const config::OptionsRecord& options);

}  // namespace tallow::fallback
