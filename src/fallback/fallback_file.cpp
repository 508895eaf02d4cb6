// The file as a whole: how it is found, created, given its sync points, and lost.
#include "fallback/fallback_file.hpp"

#include <windows.h>

#include <cstdio>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "fallback/recovery.hpp"

namespace tallow::fallback {
namespace {

using diag::log;
using diag::LogLevel;

enum class SyncPointLine { kRead, kWriting };

void logSyncPoints(const SyncPoints& points, SyncPointLine line) {
  if (!diag::logEnabled(LogLevel::kTrace)) return;
  for (const SyncPoint& point : points) {
    if (line == SyncPointLine::kRead) {
      log(LogLevel::kTrace, MessageId::kTrace, "Read fallback sync point for block %I64u.",
          point.blockNo);
    } else {
      log(LogLevel::kTrace, MessageId::kTrace, "Writing sync point for block %I64u.",
          point.blockNo);
    }
    const Md5Digest& s = point.signature;
    log(LogLevel::kTrace, MessageId::kTrace,
        "Signature is 0x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x", s[0],
        s[1], s[2], s[3], s[4], s[5], s[6], s[7], s[8], s[9], s[10], s[11], s[12], s[13], s[14],
        s[15]);
  }
}

void logNotCreated(const std::string& name, unsigned long error) {
  diag::logMessage<MessageId::kNoFallbackFileCreated>(LogLevel::kError, name.c_str(),
                                                      diag::systemErrorText(error).c_str());
}

}  // namespace

bool FallbackFile::prepare(const std::string& pipeName) {
  setPipeName(header_, pipeName.c_str());
  setJobFields(header_, options_.blockSize, options_.signatureCheck != 0);
  Recovery found = findRecovery(header_, options_);
  const bool takenOver = static_cast<bool>(found.stream);
  name_ = std::move(found.name);
  stream_ = std::move(found.stream);
  syncPoints_ = found.syncPoints;
  if (takenOver) {
    header_ = found.header;
    logSyncPoints(syncPoints_, SyncPointLine::kRead);
    seek(kDataStartOffset);
  }
  createPending_ = found.mayBeCreated && !isOpen();
  if (createPending_) return takenOver;
  if (isOpen()) {
    diag::logMessage<MessageId::kRecovering>(LogLevel::kPosition, name_.c_str());
  } else {
    // The file could not be positioned, or every numbered name is taken.
    logNotCreated(name_, takenOver ? stream_.systemError() : ERROR_FILE_EXISTS);
  }
  return takenOver;
}

void FallbackFile::createIfPending() {
  if (!createPending_) return;
  createPending_ = false;
  if (create()) writeSyncArea(kNoSyncPoint);
}

void FallbackFile::dropRecovery() {
  writeSyncArea(kNoSyncPoint);
}

void FallbackFile::checkpoint(std::uint64_t blockNo, const Md5Context& running) {
  const SyncPoint point = syncPointAt(blockNo, running);
  if (!isOpen()) {
    if (create()) {
      // A file that is created while the job runs holds only its header, whatever the pair of sync
      // points says. Its records must not begin before the data area.
      if (writeSyncArea(point)) seek(kDataStartOffset);
    } else if (!options_.noFallback) {
      logNotCreated(name_, stream_.systemError());
    }
  } else if (!isNewest(point)) {
    const std::uint64_t position = stream_.tellOrRaise();
    if (writeSyncArea(point)) seek(position);
  }
  expectedWritePos_ = kDataStartOffset;
}

const SyncPoint* FallbackFile::syncPointOf(std::uint64_t blockNo) const {
  return findSyncPoint(syncPoints_, blockNo);
}

// Creates or empties the file and writes its header block. True if both succeed; the file is then
// open.
bool FallbackFile::create() {
  forgetRecords();
  stream_ = FileStream::open(name_, "w+b");
  if (!options_.noFallback) {
    log(isOpen() ? LogLevel::kTrace : LogLevel::kOption, MessageId::kTrace,
        "Creation of fallback file \"%s\" %s.", name_.c_str(), isOpen() ? "succeeded" : "failed");
  }
  if (!isOpen()) return false;
  if (stream_.write(&header_, sizeof header_) != sizeof header_) {
    giveUp();
    return false;
  }
  diag::logMessage<MessageId::kFallbackFileCreated>(LogLevel::kPosition, name_.c_str());
  return true;
}

SyncPoint FallbackFile::syncPointAt(std::uint64_t blockNo, const Md5Context& running) const {
  SyncPoint point = {blockNo, {}};
  if (hasSignatures()) point.signature = md5OfCopy(running);
  return point;
}

// True if the file's newest sync point is this one. Its number alone does not prove that: after a
// restart, the data after the restart position may differ from that of the previous run.
bool FallbackFile::isNewest(const SyncPoint& point) const {
  const SyncPoint& newest = syncPoints_[1];
  return hasSignatures() ? newest == point : newest.blockNo == point.blockNo;
}

// Adds a sync point to the pair and writes the sync area. False if the area cannot be reached or
// the write fails, which deletes the file.
bool FallbackFile::writeSyncArea(const SyncPoint& point) {
  if (!seek(kSyncAreaOffset)) return false;
  addSyncPoint(syncPoints_, point);
  logSyncPoints(syncPoints_, SyncPointLine::kWriting);
  if (stream_.write(&syncPoints_, sizeof syncPoints_) == sizeof syncPoints_ && stream_.flush()) {
    return true;
  }
  giveUp();
  return false;
}

// Logs the offset and goes there. False without a stream or if the seek fails, which closes the
// stream.
bool FallbackFile::seek(std::uint64_t offset) {
  log(LogLevel::kTrace, MessageId::kTrace, "Seeking to fallback file offset %I64d",
      static_cast<std::int64_t>(offset));
  return stream_.seekOrClose(offset);
}

// Called after every failed write.
void FallbackFile::giveUp() {
  close();
  std::remove(name_.c_str());
  diag::logMessage<MessageId::kFallbackWriteFailed>(LogLevel::kError);
}

}  // namespace tallow::fallback
