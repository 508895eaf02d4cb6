#include <cstring>

#include "delivery/requests.hpp"
#include "delivery/restart.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::delivery {

namespace {

using fallback::PendingWrite;

// True if the file has the block, or will have it once the pending block is written.
bool canServe(const Job& job, std::uint64_t blockNo) {
  const fallback::FallbackFile& file = job.fallback;
  if (file.holds(blockNo)) return true;
  return job.state.deliveryMode == DeliveryMode::kLive && job.pending.pendingBlockNo == blockNo &&
         (file.fileFirstBlockNo == kNoBlock || blockNo == file.fileLastBlockNo + 1);
}

// True if SetPos may go back to this position within the run: that of the latest checkpoint, that
// of the file's first block, or position 0 while the file has, or can have, the data from block 1
// on.
bool isRestartPoint(const Job& job, std::uint64_t blockNo) {
  const std::uint64_t first = job.fallback.fileFirstBlockNo;
  const std::uint64_t checkpoint = job.state.checkpointBlockNo;
  if (blockNo == 0) {
    if (first != kNoBlock && first != 1 && checkpoint != 1) return false;
    return job.state.lastBlockNo == 0 || canServe(job, 1);
  }
  return (blockNo == checkpoint || blockNo == first) && canServe(job, blockNo);
}

// Restores the running digest to what it was when the block was last delivered.
void restoreDigest(DeliveryState& state, std::uint64_t blockNo) {
  const bool atCheckpoint = state.checkpointBlockNo == blockNo;
  if (atCheckpoint && state.md5AtCheckpoint.coveredBlockNo == blockNo) {
    state.md5Running = state.md5AtCheckpoint;
    return;
  }
  state.md5Running = state.md5AtFileFirst;
  if (atCheckpoint) state.md5AtCheckpoint = state.md5Running;
}

// Goes back within the run.
void reposition(Job& job, TallowRequestBlock& request, std::uint64_t position) {
  DeliveryState& state = job.state;
  fallback::FallbackFile& file = job.fallback;
  if (!isRestartPoint(job, position)) refusePosition(request);
  if (state.lastBlockNo == 0) {
    state.checkpointBlockNo = 0;
    state.nextBlockNo = 1;
    return;
  }
  const std::uint64_t blockNo = position != 0 ? position : 1;
  if (position == 0) state.checkpointBlockNo = 1;
  if (state.deliveryMode == DeliveryMode::kLive) {
    writePending(job, blockNo == file.fileFirstBlockNo ? PendingWrite::kOnlyAppend
                                                       : PendingWrite::kMayStartArea);
    state.deliveryMode = DeliveryMode::kReplaying;
  }
  const fallback::RecordLayout layout = fallback::recordLayout(job.options);
  if (!fallback::seek(file, layout.offsetOf(blockNo, file.fileFirstBlockNo))) {
    diag::raise<MessageId::kFallbackFileUnusable>(file.fallbackName.c_str());
  }
  state.nextBlockNo = blockNo;
  state.lastBlockNo = blockNo;
  restoreDigest(state, blockNo);
}

std::uint64_t takePosition(const TallowPositionBlock& block) {
  if (block.positionLength != TALLOW_POSITION_SIZE) diag::raise<MessageId::kBadPositionLength>();
  if (block.position == nullptr) {
    diag::raise<MessageId::kFailedWithoutText>(diag::message<MessageId::kModuleTitle>().c_str());
  }
  std::uint64_t position = 0;
  std::memcpy(&position, block.position, sizeof position);
  diag::log(diag::LogLevel::kTrace, MessageId::kTrace, "SetPos to block no. %I64u.", position);
  return position;
}

}  // namespace

void setPos(Job& job, TallowRequestBlock& request, TallowPositionBlock& block) {
  DeliveryState& state = job.state;
  if (state.stream != StreamState::kWhole) {
    request.returnCode = pmrcDelivery;
    return;
  }
  state.eofReturned = false;
  state.pipeEof = false;
  if (!job.fallback.fallbackFile) diag::raise<MessageId::kNoFallbackFile>();
  const std::uint64_t position = takePosition(block);
  if (position == kNoBlock) refusePosition(request);
  if (state.deliveryMode == DeliveryMode::kRestartable) {
    restart(job, request, position);
  } else {
    reposition(job, request, position);
  }
}

}  // namespace tallow::delivery
