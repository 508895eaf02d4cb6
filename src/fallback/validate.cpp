#include "fallback/validate.hpp"

#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::fallback {

namespace {

using diag::log;
using diag::LogLevel;

// Applies the acceptance rule and logs a refusal with what was expected.
bool acceptHeader(HeaderImage& read, const FallbackFile& file, Candidate candidate,
                  const config::OptionsRecord& options) {
  constexpr LogLevel kDetail = LogLevel::kOption;
  const LogLevel level = candidate == Candidate::kExplicit ? LogLevel::kError : LogLevel::kOption;
  switch (judgeHeader(read, file.headerImage.pipeName, options.blockSize)) {
    case HeaderVerdict::kAccepted:
      return true;
    case HeaderVerdict::kTextDiffers:
      diag::logMessage<MessageId::kHeaderTextDiffers>(level);
      log(kDetail, MessageId::kTrace, "Expected: \"%s\"; got \"%s\"", kHeaderText, read.headerText);
      return false;
    case HeaderVerdict::kPipeNameDiffers:
      diag::logMessage<MessageId::kPipeNameDiffers>(level);
      log(kDetail, MessageId::kTrace, "Expected: \"%s\"; got \"%s\"", file.headerImage.pipeName,
          read.pipeName);
      return false;
    case HeaderVerdict::kBlockSizeDiffers:
      diag::logMessage<MessageId::kBlockSizeDiffers>(level);
      log(kDetail, MessageId::kTrace, "Expected: %d; got %d", static_cast<int>(options.blockSize),
          static_cast<int>(read.blockSize));
      return false;
  }
  return false;
}

}  // namespace

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

bool validate(FallbackFile& file, FileStream stream, const std::string& name, Candidate candidate,
              const config::OptionsRecord& options) {
  if (candidate == Candidate::kFound) {
    log(LogLevel::kTrace, MessageId::kTrace, "Validating fallback file \"%s\".", name.c_str());
  }
  HeaderImage read = {};
  if (stream.read(&read, sizeof read) != sizeof read) return false;
  if (!acceptHeader(read, file, candidate, options)) return false;
  // If the sync area is cut short, what was read of it remains. The next write of the area replaces
  // it.
  if (stream.read(&file.syncPoints, sizeof file.syncPoints) != sizeof file.syncPoints) return false;
  log(LogLevel::kTrace, MessageId::kTrace, "Validated fallback file \"%s\" for recovery.",
      name.c_str());
  file.fallbackName = name;
  file.fallbackFile = std::move(stream);
  file.headerImage = read;
  logSyncPoints(file.syncPoints, SyncPointLine::kRead);
  seek(file, kDataStartOffset);
  return true;
}

}  // namespace tallow::fallback
