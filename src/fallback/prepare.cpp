#include "fallback/prepare.hpp"

#include <windows.h>

#include <cstdlib>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "diag/system_error.hpp"
#include "fallback/fallback_name.hpp"
#include "fallback/search.hpp"
#include "fallback/validate.hpp"

namespace tallow::fallback {

namespace {

using diag::LogLevel;

std::string directoryInForce(const config::OptionsRecord& options) {
  if (!options.fallbackDirectory.empty()) return options.fallbackDirectory;
  if (const char* temp = std::getenv("TEMP")) return temp;
  if (const char* windows = std::getenv("WINDIR")) return std::string(windows) + "\\temp";
  return "c:\\";
}

bool takeOverExplicit(FallbackFile& file, const config::OptionsRecord& options,
                      const std::string& directory) {
  file.fallbackName = directory + "\\" + options.fallbackFile;
  bool takenOver = false;
  if (FileStream stream = FileStream::open(file.fallbackName, "r+b")) {
    takenOver = validate(file, std::move(stream), file.fallbackName, Candidate::kExplicit, options);
    if (!takenOver) {
      diag::logMessage<MessageId::kFallbackFileUnusable>(LogLevel::kError,
                                                         file.fallbackName.c_str());
    }
  }
  file.fallbackCreatePending = !file.fallbackFile;
  return takenOver;
}

bool takeOverFound(FallbackFile& file, const config::OptionsRecord& options,
                   const std::string& directory) {
  const std::string stem = nameStem(file.headerImage.pipeName);
  const SearchResult found = searchForRecovery(file, options, directory, stem);
  if (found.takenOver) return true;
  // The interface requires the last of the numbered names, always. To try all 65,536 names in turn
  // would only show whether one of them is free, and the search has just seen all that exist.
  file.fallbackName = directory + "\\" + numberedName(stem, kNumberedNames - 1);
  file.fallbackCreatePending = found.numberedNames < kNumberedNames;
  return false;
}

}  // namespace

bool prepare(FallbackFile& file, const config::OptionsRecord& options) {
  setJobFields(file.headerImage, options.blockSize, options.signatureCheck != 0);
  file.syncPoints = kNoSyncPoints;
  const std::string directory = directoryInForce(options);
  const bool takenOver = options.fallbackFile.empty() ? takeOverFound(file, options, directory)
                                                      : takeOverExplicit(file, options, directory);
  if (file.fallbackCreatePending) return takenOver;
  if (takenOver && file.fallbackFile) {
    diag::logMessage<MessageId::kRecovering>(LogLevel::kPosition, file.fallbackName.c_str());
  } else {
    // The file could not be positioned, or every numbered name is taken.
    const unsigned long error = takenOver ? file.fallbackFile.systemError() : ERROR_FILE_EXISTS;
    diag::logMessage<MessageId::kNoFallbackFileCreated>(LogLevel::kError, file.fallbackName.c_str(),
                                                        diag::systemErrorText(error).c_str());
  }
  return takenOver;
}

}  // namespace tallow::fallback
