// The records of the file's data area: how they are written, replayed and looked up for a restart.
#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "fallback/fallback_file.hpp"
#include "tallow/tallow.h"

namespace tallow::fallback {

using diag::log;
using diag::LogLevel;

std::uint64_t FallbackFile::offsetOf(std::uint64_t blockNo) const noexcept {
  return layout().offsetOf(blockNo, firstBlockNo_);
}

bool FallbackFile::canAppend(std::uint64_t blockNo) const noexcept {
  return isOpen() && (firstBlockNo_ == kNoBlock || blockNo == lastBlockNo_ + 1);
}

bool FallbackFile::append(const Block& block, Place place) {
  const bool isShort = options_.needFullBlock && block.length < options_.blockSize;
  if (isShort) shortBlocks_.makeRoom();
  const bool becomesFirst = place == Place::kStart || firstBlockNo_ == kNoBlock;
  if (place == Place::kStart) {
    if (!seek(kDataStartOffset)) return false;
  } else if (becomesFirst) {
    // After a SetPos that failed, the stream may be anywhere.
    if (!stream_.seekOrClose(kDataStartOffset)) return false;
  }
  if (!writeRecord(block)) return false;

  if (becomesFirst) {
    firstBlockNo_ = block.number;
    shortBlocks_.clear();
  }
  lastBlockNo_ = block.number;
  if (isShort) shortBlocks_.add(block.number, block.length);
  return becomesFirst;
}

void FallbackFile::logRecord(const Block& block) {
  if (!diag::logEnabled(LogLevel::kTrace)) return;
  log(LogLevel::kTrace, MessageId::kTrace,
      "Writing %d data bytes to fallback file as block no. %I64u.", static_cast<int>(block.length),
      block.number);
  log(LogLevel::kTrace, MessageId::kTrace,
      "Current fallback write position: %I64d, expected fallback write position: %I64d",
      stream_.tell(), static_cast<std::int64_t>(expectedWritePos_));
  log(LogLevel::kTrace, MessageId::kTrace, "Read block size: %ld, Bytes read from pipe : %ld",
      static_cast<long>(options_.blockSize), static_cast<long>(block.length));
  if (options_.needFullBlock) return;
  log(LogLevel::kTrace, MessageId::kTrace,
      "Writing partial block size value of %ld bytes to fallback file.",
      static_cast<long>(block.length));
}

bool FallbackFile::writeRecord(const Block& block) {
  logRecord(block);
  constexpr std::size_t kLengthSize = sizeof block.length;
  const bool written =
      (options_.needFullBlock || stream_.write(&block.length, kLengthSize) == kLengthSize) &&
      stream_.write(block.data, options_.blockSize) == options_.blockSize;
  if (!written) {
    giveUp();
    return false;
  }
  expectedWritePos_ += layout().recordSize();
  return true;
}

void FallbackFile::beginReplay(std::uint64_t blockNo) {
  if (!seek(offsetOf(blockNo))) diag::raise<MessageId::kFallbackFileUnusable>(name_.c_str());
}

std::optional<std::uint32_t> FallbackFile::readBlock(std::uint64_t blockNo, void* buffer) {
  if (!isOpen()) return std::nullopt;
  const std::uint64_t position = stream_.tellOrRaise();
  stream_.seekToEnd();
  const std::int64_t fileLength = stream_.tell();  // as the system reports it
  stream_.seekOrRaise(offsetOf(blockNo));
  const std::optional<std::uint32_t> length = readRecord(blockNo, buffer);
  if (!length) {
    // Back to the start of the record, so that the rest of it is never taken for the next one.
    stream_.seekOrClose(offsetOf(blockNo));
    diag::logMessage<MessageId::kFallbackReadFailed>(LogLevel::kError, name_.c_str());
    return std::nullopt;
  }
  log(LogLevel::kTrace, MessageId::kTrace,
      "Returning %d data bytes from fallback file (length %I64d, position %I64d) to Kelvane as "
      "block no. %I64u.",
      static_cast<int>(*length), fileLength, static_cast<std::int64_t>(position), blockNo);
  return length;
}

// Reads the record at the stream's position. Nothing if it is incomplete or invalid.
std::optional<std::uint32_t> FallbackFile::readRecord(std::uint64_t blockNo, void* buffer) {
  const auto blockSize = static_cast<std::uint32_t>(options_.blockSize);
  std::uint32_t length = blockSize;
  if (!options_.needFullBlock &&
      (stream_.read(&length, sizeof length) != sizeof length || length > blockSize)) {
    return std::nullopt;
  }
  if (stream_.read(buffer, blockSize) != blockSize) return std::nullopt;
  return options_.needFullBlock ? shortBlocks_.lengthOf(blockNo, blockSize) : length;
}

bool FallbackFile::endReplayAt(std::uint64_t blockNo) {
  if (blockNo < lastBlockNo_) return false;
  seek(offsetOf(blockNo + 1));
  return true;
}

void FallbackFile::lookUpLength(std::uint64_t blockNo) {
  if (options_.needFullBlock) return;
  const std::uint64_t position = stream_.tellOrRaise();
  const std::uint64_t offset = layout().restartLookupOffset(blockNo);
  log(LogLevel::kTrace, MessageId::kTrace,
      "Seeking to fallback file offset on checkpoint/restart %I64d",
      static_cast<std::int64_t>(offset));
  stream_.seekOrRaise(offset);
  std::uint32_t length = 0;
  if (stream_.read(&length, sizeof length) != sizeof length) {
    diag::raise<MessageId::kFallbackLengthUnreadable>(
        diag::systemErrorText(stream_.systemError()).c_str());
  }
  stream_.seekOrRaise(position);
}

void FallbackFile::refuseRestart() {
  if (!stream_.seekOrClose(kSyncAreaOffset)) {
    diag::raiseWithCode<MessageId::kFallbackFileUnusable>(pmrcDelivery, name_.c_str());
  }
}

void FallbackFile::forgetRecords() noexcept {
  firstBlockNo_ = kNoBlock;
  lastBlockNo_ = kNoBlock;
}

}  // namespace tallow::fallback
