// The pair of sync points.
#pragma once

#include "fallback/fallback_format.hpp"

namespace tallow::fallback {

inline constexpr SyncPoints kNoSyncPoints = {SyncPoint{kNoBlock, {}}, SyncPoint{kNoBlock, {}}};

// Takes a block's sync point into the pair: it becomes the newer one and pushes the newer to the
// older's place, or takes the place of the newer if that names the same block. kNoBlock and 0 take
// both places.
void addSyncPoint(SyncPoints& points, const SyncPoint& point);

// The first of the pair, the older before the newer, that names the block; null if none does.
const SyncPoint* findSyncPoint(const SyncPoints& points, std::uint64_t blockNo);

}  // namespace tallow::fallback
