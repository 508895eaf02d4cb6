// What Close does with the fallback file.
#pragma once

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

// Whether Close may ask the user before it deletes the file.
enum class CloseKind { kMayAsk, kNeverAsks };

// Deletes the file of a job that has consumed all its data, unless the user or the attribute
// PRESERVE_RESTART_INFO keeps it. The stream must be closed.
void removeFinished(const FallbackFile& file, const config::OptionsRecord& options, CloseKind kind);

}  // namespace tallow::fallback
