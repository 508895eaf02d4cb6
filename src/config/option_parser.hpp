// Reading the initialisation string into an options record.
#pragma once

#include "config/options_record.hpp"
#include "tallow/tallow.h"

namespace tallow::config {

// Fills the record from the Init block. Options apply from left to right; a mistake sets a return
// code, is logged, and does not stop the rest; the last return code stands. Two things end it
// early: a variable NPLOGDIR that names no writable directory (return code 34), and a missing
// closing quote (throws std::out_of_range).
void parseOptions(OptionsRecord& options, TallowRequestBlock& request, TallowInitBlock& init);

}  // namespace tallow::config
