#include <cstring>
#include <optional>

#include "delivery/requests.hpp"
#include "delivery/restart.hpp"
#include "delivery/restart_points.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::delivery {

namespace {

using fallback::PendingWrite;

RestartPoints restartPoints(const Job& job) {
  const bool isLive = job.state.deliveryMode == DeliveryMode::kLive;
  return {.lastDelivered = job.state.lastBlockNo,
          .checkpoint = job.state.checkpointBlockNo,
          .fileFirst = job.fallback.fileFirstBlockNo,
          .fileLast = job.fallback.fileLastBlockNo,
          .pending = isLive ? job.pending.pendingBlockNo : kNoBlock};
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
void reposition(Job& job, std::uint64_t position) {
  DeliveryState& state = job.state;
  fallback::FallbackFile& file = job.fallback;
  const std::optional<std::uint64_t> target = blockToRestartAt(restartPoints(job), position);
  if (!target) refusePosition();
  if (*target == 0) {
    state.checkpointBlockNo = 0;
    state.nextBlockNo = 1;
    return;
  }
  const std::uint64_t blockNo = *target;
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

std::uint32_t setPos(Job& job, const TallowPositionBlock& block) {
  DeliveryState& state = job.state;
  if (state.stream != StreamState::kWhole) return pmrcDelivery;
  state.eofReturned = false;
  state.pipeEof = false;
  if (!job.fallback.fallbackFile) diag::raise<MessageId::kNoFallbackFile>();
  const std::uint64_t position = takePosition(block);
  if (state.deliveryMode == DeliveryMode::kRestartable) return restart(job, position);
  reposition(job, position);
  return pmrcSuccess;
}

}  // namespace tallow::delivery
