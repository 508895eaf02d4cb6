// How a load runs: blocks, rows, checkpoints, the ways back, and the end.
#pragma once

#include "load/job/load_parts.hpp"
#include "load/job/start.hpp"

namespace tallow::load {

// Runs the load to its end.
void runLoad(LoadParts& load, StartedLoad started);

}  // namespace tallow::load
