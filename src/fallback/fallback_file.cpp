#include "fallback/fallback_file.hpp"

#include <cstdio>

#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::fallback {

using diag::LogLevel;

bool seek(FallbackFile& file, std::uint64_t offset) {
  diag::log(LogLevel::kTrace, MessageId::kTrace, "Seeking to fallback file offset %I64d",
            static_cast<std::int64_t>(offset));
  return seekSilently(file, offset);
}

bool seekSilently(FallbackFile& file, std::uint64_t offset) {
  if (!file.fallbackFile) return false;
  if (file.fallbackFile.seek(offset)) return true;
  file.fallbackFile.close();
  return false;
}

bool create(FallbackFile& file, const config::OptionsRecord& options) {
  file.fileFirstBlockNo = kNoBlock;
  file.fileLastBlockNo = kNoBlock;
  file.fallbackFile = FileStream::open(file.fallbackName, "w+b");
  const bool opened = static_cast<bool>(file.fallbackFile);
  if (!options.noFallback) {
    diag::log(opened ? LogLevel::kTrace : LogLevel::kOption, MessageId::kTrace,
              "Creation of fallback file \"%s\" %s.", file.fallbackName.c_str(),
              opened ? "succeeded" : "failed");
  }
  if (!opened) return false;
  if (file.fallbackFile.write(&file.headerImage, sizeof file.headerImage) ==
      sizeof file.headerImage) {
    return true;
  }
  handleWriteFailure(file);
  return false;
}

void handleWriteFailure(FallbackFile& file) {
  file.fallbackFile.close();
  std::remove(file.fallbackName.c_str());
  diag::logMessage<MessageId::kFallbackWriteFailed>(LogLevel::kError);
}

}  // namespace tallow::fallback
