#include "delivery/restart.hpp"

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "diag/system_error.hpp"
#include "tallow/tallow.h"

namespace tallow::delivery {

namespace {

using diag::LogLevel;
using fallback::FileStream;

// Raises a message with the reason of the stream's latest failure.
template <MessageId id>
[[noreturn]] void raiseFailure(const FileStream& stream) {
  diag::raise<id>(diag::systemErrorText(stream.systemError()).c_str());
}

// Looks up the length that the fallback file records for a block. Only whether the file has a
// length there matters: the pipe read fills whole blocks whatever the length is.
void lookUpLength(Job& job, std::uint64_t blockNo) {
  if (job.options.needFullBlock) return;
  FileStream& stream = job.fallback.fallbackFile;
  const std::int64_t position = stream.tell();
  if (position == -1) {
    raiseFailure<MessageId::kFallbackTellFailed>(stream);
  }
  const std::uint64_t offset = fallback::recordLayout(job.options).restartLookupOffset(blockNo);
  diag::log(LogLevel::kTrace, MessageId::kTrace,
            "Seeking to fallback file offset on checkpoint/restart %I64d",
            static_cast<std::int64_t>(offset));
  if (!stream.seek(offset)) raiseFailure<MessageId::kFallbackSeekFailed>(stream);
  std::uint32_t recordLength = 0;
  if (stream.read(&recordLength, sizeof recordLength) != sizeof recordLength) {
    raiseFailure<MessageId::kFallbackLengthUnreadable>(stream);
  }
  if (!stream.seek(static_cast<std::uint64_t>(position)))
    raiseFailure<MessageId::kFallbackSeekFailed>(stream);
}

// Reads the re-sent data block by block into the pending buffer, up to the wanted block. From the
// first read on, the stream is lost unless the restart is accepted.
void skipResentData(Job& job, std::uint64_t wantedBlockNo) {
  DeliveryState& state = job.state;
  fallback::PendingBlock& pending = job.pending;
  std::uint64_t blockNo = 0;
  do {
    ++blockNo;
    lookUpLength(job, blockNo);
    state.stream = StreamState::kLost;
    const pipe::PipeRead read = pipe::readFullBlock(
        job.pipe, job.options, pending.pendingData.get(), pending.pendingLength, blockNo);
    state.pipeEof = read.end;
    coverPipeBlock(job, blockNo, pending.pendingData.get(), pending.pendingLength, read);
  } while (!state.pipeEof && blockNo < wantedBlockNo);

  const bool isShort = pending.pendingLength < job.options.blockSize;
  if (blockNo < wantedBlockNo || pending.pendingLength == 0 ||
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
  if (!fallback::seekSilently(job.fallback, fallback::kSyncAreaOffset)) {
    diag::raiseWithCode<MessageId::kFallbackFileUnusable>(pmrcDelivery,
                                                          job.fallback.fallbackName.c_str());
  }
  return false;
}

void acceptPosition(Job& job, std::uint64_t blockNo) {
  DeliveryState& state = job.state;
  state.stream = StreamState::kWhole;
  state.deliveryMode = DeliveryMode::kLive;
  state.lastBlockNo = blockNo;
  state.nextBlockNo = blockNo != 0 ? blockNo : 1;
  state.checkpointBlockNo = blockNo;
  state.md5AtCheckpoint = state.md5Running;
  job.fallback.fileFirstBlockNo = kNoBlock;
  job.fallback.fileLastBlockNo = kNoBlock;
  if (blockNo != 0) job.pending.pendingBlockNo = blockNo;
  diag::logMessage<MessageId::kRestarted>(LogLevel::kPosition);
}

}  // namespace

void refusePosition() {
  diag::raiseWithCode<MessageId::kBadPosition>(pmrcBadPosition);
}

std::uint32_t restart(Job& job, std::uint64_t blockNo) {
  const fallback::SyncPoint* point = fallback::findSyncPoint(job.fallback.syncPoints, blockNo);
  if (blockNo == kNoBlock || point == nullptr) refusePosition();
  if (blockNo != 0) skipResentData(job, blockNo);
  if (!checkSignature(job, *point)) return pmrcDelivery;
  acceptPosition(job, blockNo);
  return pmrcSuccess;
}

}  // namespace tallow::delivery
