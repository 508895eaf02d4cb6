// Looking through the fallback directory for a file that can be restarted from.
#pragma once

#include <string>

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {

struct SearchResult {
  bool takenOver;          // a file was validated and taken into the job; the search ended there
  unsigned numberedNames;  // otherwise: how many of the stem's numbered names exist
};

// Tries every file that matches directory\stem*.fbf in the order of the directory. The interface
// requires that a candidate is opened by its bare name, so only in the working directory.
SearchResult searchForRecovery(FallbackFile& file, const config::OptionsRecord& options,
                               const std::string& directory, const std::string& stem);

}  // namespace tallow::fallback
