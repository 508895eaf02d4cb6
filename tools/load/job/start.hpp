// How a load begins: it connects, decides, takes the job and brings the data to the committed
// position.
#pragma once

#include <memory>
#include <optional>

#include "load/job/block_reader.hpp"
#include "load/job/load_parts.hpp"
#include "load/job/rejects.hpp"
#include "load/target/database.hpp"

namespace tallow::load {

// A load that holds its job, with the stream at the committed position.
struct StartedLoad {
  std::optional<TargetTable> table;  // none if the header is to name its columns
  Rejects rejects;
  std::unique_ptr<BlockReader> stream;
};

// None if the job is done already.
std::optional<StartedLoad> startLoad(LoadParts& load);

}  // namespace tallow::load
