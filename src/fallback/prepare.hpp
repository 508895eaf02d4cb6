// Choosing the fallback file of a job when its pipe has been opened.
#pragma once

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

// Decides the file's name. True when an existing file was validated for recovery and taken over:
// the stream is then open at the data start (or empty, if it could not be positioned) and header
// and sync points are the file's. Else the first checkpoint is to create the file, if a name is
// free. header.pipeName must be set.
bool prepare(FallbackFile& file, const config::OptionsRecord& options);

}  // namespace tallow::fallback
