// Reading the initialisation string into an options record.
#pragma once

#include "config/options_record.hpp"
#include "tallow/tallow.h"

namespace tallow::config {

// Fills the record from the Init block. Options apply from left to right. A mistake is logged and
// sets a return code, but the options after it still apply; the last return code stands. Only two
// things end it early: a variable NPLOGDIR that names no writable directory (return code 34), and a
// missing closing quote (throws std::out_of_range).
void parseOptions(OptionsRecord& options, TallowRequestBlock& request, TallowInitBlock& init);

}  // namespace tallow::config
