#include "delivery/requests.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "diag/system_error.hpp"

namespace tallow::delivery {

namespace {

using diag::LogLevel;
using fallback::FallbackFile;

bool createFile(Job& job) {
  if (!fallback::create(job.fallback, job.options)) return false;
  diag::logMessage<MessageId::kFallbackFileCreated>(LogLevel::kPosition,
                                                    job.fallback.fallbackName.c_str());
  return true;
}

// Creates the file if Open left that to the first checkpoint.
void createDeferred(Job& job) {
  if (!job.fallback.fallbackCreatePending) return;
  job.fallback.fallbackCreatePending = false;
  if (createFile(job) && fallback::seek(job.fallback, fallback::kSyncAreaOffset)) {
    fallback::writeSyncArea(job.fallback, kNoBlock, job.state.md5Running.md5);
  }
}

// The position to which the stream returns after the sync area has been written.
std::uint64_t currentPosition(FallbackFile& file) {
  const std::int64_t position = file.fallbackFile.tell();
  if (position == -1) {
    diag::raise<MessageId::kFallbackTellFailed>(
        diag::systemErrorText(file.fallbackFile.systemError()).c_str());
  }
  return static_cast<std::uint64_t>(position);
}

void writeSyncPoint(Job& job, std::uint64_t returnTo) {
  if (fallback::seek(job.fallback, fallback::kSyncAreaOffset) &&
      fallback::writeSyncArea(job.fallback, job.state.lastBlockNo, job.state.md5Running.md5)) {
    fallback::seek(job.fallback, returnTo);
  }
}

// True if the file's newest sync point is that of the last delivered block. Its number alone does
// not prove this: after a restart, the data after the restart position may differ from that of the
// previous run.
bool isNewestSyncPoint(const Job& job) {
  const FallbackFile& file = job.fallback;
  const fallback::SyncPoint& newest = file.syncPoints[1];
  if (newest.blockNo != job.state.lastBlockNo) return false;
  return !file.hasSignatures() ||
         newest == fallback::syncPointAt(file, newest.blockNo, job.state.md5Running.md5);
}

// Makes sure that the file exists, if it can, and has the sync point of the last delivered block.
void bringFileInLine(Job& job) {
  FallbackFile& file = job.fallback;
  if (!file.fallbackFile) {
    if (createFile(job)) {
      // A file that is created while the job runs holds only its header, whatever the pair of sync
      // points says. Its records must not begin before the data area.
      writeSyncPoint(job, fallback::kDataStartOffset);
    } else if (!job.options.noFallback) {
      diag::logMessage<MessageId::kNoFallbackFileCreated>(
          LogLevel::kError, file.fallbackName.c_str(),
          diag::systemErrorText(file.fallbackFile.systemError()).c_str());
    }
  } else if (!isNewestSyncPoint(job)) {
    writeSyncPoint(job, currentPosition(file));
  }
}

}  // namespace

std::uint32_t getPos(Job& job, TallowPositionBlock& block) {
  DeliveryState& state = job.state;
  if (state.stream == StreamState::kLost) return pmrcDelivery;
  createDeferred(job);
  if (state.deliveryMode == DeliveryMode::kRestartable) {
    diag::logMessage<MessageId::kGetPosDropsRecovery>(LogLevel::kPosition,
                                                      job.fallback.fallbackName.c_str());
    dropRecovery(job);
  }
  bringFileInLine(job);
  state.md5AtCheckpoint = state.md5Running;
  job.fallback.expectedWritePos = fallback::kDataStartOffset;
  block.positionLength = TALLOW_POSITION_SIZE;
  block.position = &state.lastBlockNo;
  state.checkpointBlockNo = state.lastBlockNo;
  diag::log(LogLevel::kTrace, MessageId::kTrace, "GetPos returns block no. %I64u.",
            state.lastBlockNo);
  return pmrcSuccess;
}

}  // namespace tallow::delivery
