#include "delivery/restart_points.hpp"

namespace tallow::delivery {
namespace {

using fallback::kNoBlock;

bool isInFile(const RestartPoints& points, std::uint64_t blockNo) {
  return points.fileFirst != kNoBlock && points.fileFirst <= blockNo && blockNo <= points.fileLast;
}

// True if the file has the block, or will have it once the pending block is written.
bool canServe(const RestartPoints& points, std::uint64_t blockNo) {
  if (isInFile(points, blockNo)) return true;
  return points.pending == blockNo &&
         (points.fileFirst == kNoBlock || blockNo == points.fileLast + 1);
}

// True if the file begins with block 1, or may still do so.
bool mayBeginWithBlock1(const RestartPoints& points) {
  return points.fileFirst == kNoBlock || points.fileFirst == 1 || points.checkpoint == 1;
}

}  // namespace

std::optional<std::uint64_t> blockToRestartAt(const RestartPoints& points, std::uint64_t position) {
  if (position == kNoBlock) return std::nullopt;
  const bool isPoint = position == 0
                           ? mayBeginWithBlock1(points)
                           : position == points.checkpoint || position == points.fileFirst;
  if (!isPoint) return std::nullopt;
  if (position == 0 && points.lastDelivered == 0) return 0;
  const std::uint64_t blockNo = position != 0 ? position : 1;
  if (!canServe(points, blockNo)) return std::nullopt;
  return blockNo;
}

}  // namespace tallow::delivery
