#include "fallback/sync_points.hpp"

#include <algorithm>

namespace tallow::fallback {

void addSyncPoint(SyncPoints& points, const SyncPoint& point) {
  if (point.blockNo == kNoBlock || point.blockNo == 0) {
    points = {point, point};
  } else if (point.blockNo == points[1].blockNo) {
    points[1] = point;
  } else {
    points = {points[1], point};
  }
}

const SyncPoint* findSyncPoint(const SyncPoints& points, std::uint64_t blockNo) {
  const auto* found = std::find_if(points.begin(), points.end(), [blockNo](const SyncPoint& point) {
    return point.blockNo == blockNo;
  });
  return found != points.end() ? found : nullptr;
}

}  // namespace tallow::fallback
