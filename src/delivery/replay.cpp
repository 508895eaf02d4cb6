#include "delivery/replay.hpp"

#include <optional>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "diag/system_error.hpp"

namespace tallow::delivery {

namespace {

using diag::LogLevel;

// Where the next block's record starts or, after the last record, where the next one will be
// appended.
std::uint64_t nextRecordOffset(const Job& job) {
  return fallback::recordLayout(job.options)
      .offsetOf(job.state.nextBlockNo, job.fallback.fileFirstBlockNo);
}

struct StreamPlace {
  std::int64_t position;
  std::int64_t fileLength;  // as the system reports it
};

// Finds the stream's position and the file's length, and leaves the stream at recordOffset.
StreamPlace whereIs(fallback::FileStream& stream, std::uint64_t recordOffset) {
  const std::int64_t position = stream.tell();
  if (position == -1) {
    diag::raise<MessageId::kFallbackTellFailed>(
        diag::systemErrorText(stream.systemError()).c_str());
  }
  stream.seekToEnd();
  const std::int64_t fileLength = stream.tell();
  if (!stream.seek(recordOffset)) {
    diag::raise<MessageId::kFallbackSeekFailed>(
        diag::systemErrorText(stream.systemError()).c_str());
  }
  return {position, fileLength};
}

// Reads the record at the stream's position into the host's buffer. Returns the length of its
// block, or nothing if the record is incomplete or invalid.
std::optional<std::uint32_t> readRecord(Job& job, void* buffer) {
  fallback::FileStream& stream = job.fallback.fallbackFile;
  const auto blockSize = static_cast<std::uint32_t>(job.options.blockSize);
  std::uint32_t recordLength = blockSize;
  if (!job.options.needFullBlock &&
      (stream.read(&recordLength, sizeof recordLength) != sizeof recordLength ||
       recordLength > blockSize)) {
    return std::nullopt;
  }
  if (stream.read(buffer, blockSize) != blockSize) return std::nullopt;
  if (!job.options.needFullBlock) return recordLength;
  return job.fallback.shortBlocks.lengthOf(job.state.nextBlockNo, blockSize);
}

std::uint32_t refuseRecord(Job& job) {
  // Back to the start of the record, so that the rest of it is never taken for the next one.
  fallback::seekSilently(job.fallback, nextRecordOffset(job));
  diag::logMessage<MessageId::kFallbackReadFailed>(LogLevel::kError,
                                                   job.fallback.fallbackName.c_str());
  return pmrcDelivery;
}

}  // namespace

std::uint32_t replay(Job& job, TallowReadBlock& block) {
  DeliveryState& state = job.state;
  if (!job.fallback.fallbackFile) return pmrcDelivery;
  const StreamPlace place = whereIs(job.fallback.fallbackFile, nextRecordOffset(job));
  const std::optional<std::uint32_t> length = readRecord(job, block.dataBuffer);
  if (!length) return refuseRecord(job);
  block.dataLength = *length;
  diag::log(LogLevel::kTrace, MessageId::kTrace,
            "Returning %d data bytes from fallback file (length %I64d, position %I64d) to Kelvane "
            "as block no. %I64u.",
            static_cast<int>(*length), place.fileLength, place.position, state.nextBlockNo);
  const std::uint64_t blockNo = state.nextBlockNo++;
  state.lastBlockNo = blockNo;
  coverReplayedBlock(job, blockNo, block.dataBuffer, *length);
  if (blockNo >= job.fallback.fileLastBlockNo) {
    fallback::seek(job.fallback, nextRecordOffset(job));
    state.deliveryMode = DeliveryMode::kLive;
  }
  return pmrcSuccess;
}

}  // namespace tallow::delivery
