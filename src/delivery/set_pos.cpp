#include <cstring>
#include <optional>

#include "delivery/requests.hpp"
#include "delivery/restart_points.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::delivery {
namespace {

using diag::LogLevel;

[[noreturn]] void refusePosition() {
  diag::raiseWithCode<MessageId::kBadPosition>(pmrcBadPosition);
}

// Within the run.

RestartPoints restartPoints(const Job& job) {
  const bool isLive = job.state.mode == DeliveryMode::kLive;
  return {.lastDelivered = job.state.lastBlockNo,
          .checkpoint = job.state.checkpointBlockNo,
          .fileFirst = job.fallback.firstBlockNo(),
          .fileLast = job.fallback.lastBlockNo(),
          .pending = isLive ? job.pending.blockNo : kNoBlock};
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

// Goes back by replaying the fallback file.
void reposition(Job& job, std::uint64_t position) {
  DeliveryState& state = job.state;
  const std::optional<std::uint64_t> target = blockToRestartAt(restartPoints(job), position);
  if (!target) refusePosition();
  if (*target == 0) {
    state.checkpointBlockNo = 0;
    state.nextBlockNo = 1;
    return;
  }
  const std::uint64_t blockNo = *target;
  if (position == 0) state.checkpointBlockNo = 1;
  if (state.mode == DeliveryMode::kLive) {
    writePending(job, blockNo == job.fallback.firstBlockNo() ? PendingWrite::kOnlyAppend
                                                             : PendingWrite::kMayStartArea);
    state.mode = DeliveryMode::kReplaying;
  }
  job.fallback.beginReplay(blockNo);
  state.nextBlockNo = blockNo;
  state.lastBlockNo = blockNo;
  restoreDigest(state, blockNo);
}

// After a new load: the writer sends the job's data again from its beginning.

// Reads the re-sent data block by block into the pending buffer, up to the wanted block. From the
// first read on, the stream is lost unless the restart is accepted.
void skipResentData(Job& job, std::uint64_t wantedBlockNo) {
  DeliveryState& state = job.state;
  PendingBlock& pending = job.pending;
  std::uint64_t blockNo = 0;
  do {
    ++blockNo;
    job.fallback.lookUpLength(blockNo);
    state.stream = StreamState::kLost;
    const pipe::PipeRead read =
        pipe::readFullBlock(job.pipe, job.options, pending.data.get(), pending.length, blockNo);
    state.pipeEof = read.end;
    coverPipeBlock(job, blockNo, pending.data.get(), pending.length, read);
  } while (!state.pipeEof && blockNo < wantedBlockNo);

  const bool isShort = pending.length < job.options.blockSize;
  if (blockNo < wantedBlockNo || pending.length == 0 ||
      // If the first run's blocks were not full, they cannot be counted in the re-sent data.
      (isShort && !job.options.needFullBlock)) {
    refusePosition();
  }
}

// Compares the data read so far with the signature of the sync point. False: the restart is
// refused.
bool checkSignature(Job& job, const fallback::SyncPoint& point) {
  constexpr std::uint32_t kMustMatch = 2;
  const std::uint32_t check = job.options.signatureCheck;
  if (check == 0 || (job.fallback.hasSignatures() &&
                     fallback::md5OfCopy(job.state.md5Running.md5) == point.signature)) {
    return true;
  }
  diag::logMessage<MessageId::kDataDiffers>(check == kMustMatch ? LogLevel::kError
                                                                : LogLevel::kWarning);
  if (check != kMustMatch) return true;
  job.fallback.refuseRestart();
  return false;
}

void acceptPosition(Job& job, std::uint64_t blockNo) {
  DeliveryState& state = job.state;
  state.stream = StreamState::kWhole;
  state.mode = DeliveryMode::kLive;
  state.lastBlockNo = blockNo;
  state.nextBlockNo = blockNo != 0 ? blockNo : 1;
  state.checkpointBlockNo = blockNo;
  state.md5AtCheckpoint = state.md5Running;
  job.fallback.acceptRestart();
  if (blockNo != 0) job.pending.blockNo = blockNo;
  diag::logMessage<MessageId::kRestarted>(LogLevel::kPosition);
}

// Reads and drops the re-sent data up to block blockNo, keeps that block for the next Read and
// checks the signature of it all. After the first read from the pipe, a failure leaves the job
// without a stream.
std::uint32_t restart(Job& job, std::uint64_t blockNo) {
  const fallback::SyncPoint* point = job.fallback.syncPointOf(blockNo);
  if (blockNo == kNoBlock || point == nullptr) refusePosition();
  if (blockNo != 0) skipResentData(job, blockNo);
  if (!checkSignature(job, *point)) return pmrcDelivery;
  acceptPosition(job, blockNo);
  return pmrcSuccess;
}

// The request.

std::uint64_t takePosition(const TallowPositionBlock& block) {
  if (block.positionLength != TALLOW_POSITION_SIZE) diag::raise<MessageId::kBadPositionLength>();
  if (block.position == nullptr) {
    diag::raise<MessageId::kFailedWithoutText>(diag::message<MessageId::kModuleTitle>().c_str());
  }
  std::uint64_t position = 0;
  std::memcpy(&position, block.position, sizeof position);
  diag::log(LogLevel::kTrace, MessageId::kTrace, "SetPos to block no. %I64u.", position);
  return position;
}

}  // namespace

std::uint32_t setPos(Job& job, const TallowPositionBlock& block) {
  DeliveryState& state = job.state;
  if (state.stream != StreamState::kWhole) return pmrcDelivery;
  state.eofReturned = false;
  state.pipeEof = false;
  if (!job.fallback.isOpen()) diag::raise<MessageId::kNoFallbackFile>();
  const std::uint64_t position = takePosition(block);
  if (state.mode == DeliveryMode::kRestartable) return restart(job, position);
  reposition(job, position);
  return pmrcSuccess;
}

}  // namespace tallow::delivery
