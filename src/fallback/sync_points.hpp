// The pair of sync points.
#pragma once

#include "fallback/fallback_format.hpp"

namespace tallow::fallback {

inline constexpr SyncPoints kNoSyncPoints = {SyncPoint{kNoBlock, {}}, SyncPoint{kNoBlock, {}}};

// Adds a block's sync point to the pair. It becomes the newer one, and the newer one becomes the
// older; but if the newer one has the same block, it is replaced. A sync point of kNoBlock or 0
// takes both places.
void addSyncPoint(SyncPoints& points, const SyncPoint& point);

// The sync point of the block; the older one if both have it, null if neither does.
const SyncPoint* findSyncPoint(const SyncPoints& points, std::uint64_t blockNo);

}  // namespace tallow::fallback
