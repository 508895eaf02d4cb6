#include "fallback/write.hpp"

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "fallback/validate.hpp"

namespace tallow::fallback {

namespace {

using diag::log;
using diag::LogLevel;

void logRecord(FallbackFile& file, const RecordLayout& layout, const PendingBlock& pending,
               std::uint64_t blockNo) {
  if (!diag::logEnabled(LogLevel::kTrace)) return;
  log(LogLevel::kTrace, MessageId::kTrace,
      "Writing %d data bytes to fallback file as block no. %I64u.",
      static_cast<int>(pending.pendingLength), blockNo);
  log(LogLevel::kTrace, MessageId::kTrace,
      "Current fallback write position: %I64d, expected fallback write position: %I64d",
      file.fallbackFile.tell(), static_cast<std::int64_t>(file.expectedWritePos));
  log(LogLevel::kTrace, MessageId::kTrace, "Read block size: %ld, Bytes read from pipe : %ld",
      static_cast<long>(layout.blockSize), static_cast<long>(pending.pendingLength));
  if (layout.fullBlocks) return;
  log(LogLevel::kTrace, MessageId::kTrace,
      "Writing partial block size value of %ld bytes to fallback file.",
      static_cast<long>(pending.pendingLength));
}

bool writeRecord(FallbackFile& file, const RecordLayout& layout, const PendingBlock& pending,
                 std::uint64_t blockNo) {
  logRecord(file, layout, pending, blockNo);
  FileStream& stream = file.fallbackFile;
  constexpr std::size_t kLengthSize = sizeof pending.pendingLength;
  const bool written =
      (layout.fullBlocks || stream.write(&pending.pendingLength, kLengthSize) == kLengthSize) &&
      stream.write(pending.pendingData.get(), layout.blockSize) == layout.blockSize;
  if (!written) {
    handleWriteFailure(file);
    return false;
  }
  file.expectedWritePos += layout.recordSize();
  return true;
}

}  // namespace

bool writePendingBlock(FallbackFile& file, const config::OptionsRecord& options,
                       PendingBlock& pending, std::uint64_t checkpointBlockNo, PendingWrite mode) {
  const std::uint64_t blockNo = pending.pendingBlockNo;
  if (!file.fallbackFile || blockNo == kNoBlock || checkpointBlockNo == kNoBlock) return false;
  if (file.fileFirstBlockNo != kNoBlock && blockNo != file.fileLastBlockNo + 1) return false;

  const bool isShort = options.needFullBlock && pending.pendingLength < options.blockSize;
  if (isShort) file.shortBlocks.makeRoom();
  pending.pendingBlockNo = kNoBlock;  // even if it cannot be written
  const bool startsArea = mode == PendingWrite::kMayStartArea && blockNo == checkpointBlockNo;
  const bool becomesFirst = startsArea || file.fileFirstBlockNo == kNoBlock;
  if (startsArea && !seek(file, kDataStartOffset)) return false;
  // After a SetPos that failed, the stream may be anywhere.
  if (!startsArea && becomesFirst && !seekSilently(file, kDataStartOffset)) return false;
  if (!writeRecord(file, recordLayout(options), pending, blockNo)) return false;

  if (becomesFirst) {
    file.fileFirstBlockNo = blockNo;
    file.shortBlocks.clear();
  }
  file.fileLastBlockNo = blockNo;
  if (isShort) file.shortBlocks.add(blockNo, pending.pendingLength);
  return becomesFirst;
}

SyncPoint syncPointAt(const FallbackFile& file, std::uint64_t blockNo, const Md5Context& running) {
  SyncPoint point = {blockNo, {}};
  if (file.hasSignatures() && blockNo != kNoBlock) point.signature = md5OfCopy(running);
  return point;
}

bool writeSyncArea(FallbackFile& file, std::uint64_t blockNo, const Md5Context& running) {
  addSyncPoint(file.syncPoints, syncPointAt(file, blockNo, running));
  logSyncPoints(file.syncPoints, SyncPointLine::kWriting);
  if (file.fallbackFile.write(&file.syncPoints, sizeof file.syncPoints) == sizeof file.syncPoints &&
      file.fallbackFile.flush()) {
    return true;
  }
  handleWriteFailure(file);
  return false;
}

}  // namespace tallow::fallback
