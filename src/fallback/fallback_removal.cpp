// What Close does with the file.
#include <windows.h>

#include <sys/stat.h>

#include <cstdio>
#include <optional>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "fallback/fallback_file.hpp"

namespace tallow::fallback {
namespace {

// The file's size in megabytes; nothing if there is no such file.
std::optional<double> sizeOnDisk(const std::string& name) {
  constexpr double kMegabyte = 1'000'000.0;
  struct _stat64 status = {};
  if (_stat64(name.c_str(), &status) != 0) return std::nullopt;
  return static_cast<double>(status.st_size) / kMegabyte;
}

int showBox(const std::string& text, UINT buttons) {
  return MessageBoxA(nullptr, text.c_str(), diag::message<MessageId::kModuleTitle>().c_str(),
                     buttons | MB_TASKMODAL | MB_SETFOREGROUND);
}

void askAndRemove(const std::string& name, const char* pipeName, double megabytes) {
  const std::string question =
      diag::message<MessageId::kConfirmDeletion>(pipeName, name.c_str(), megabytes);
  if (showBox(question, MB_YESNO | MB_ICONQUESTION) == IDYES) {
    std::remove(name.c_str());
    showBox(diag::message<MessageId::kFallbackFileDeleted>(), MB_OK);
  } else {
    showBox(diag::message<MessageId::kFallbackFileKept>(), MB_OK);
  }
}

}  // namespace

void FallbackFile::removeFinished(CloseKind kind) const {
  const std::optional<double> megabytes = sizeOnDisk(name_);
  if (options_.confirmFallbackDeletion && kind == CloseKind::kMayAsk && megabytes) {
    askAndRemove(name_, header_.pipeName, *megabytes);
    return;
  }
  if (options_.preserveRestartInfo) return;
  if (megabytes) {
    diag::logMessage<MessageId::kDeletingFallbackFile>(diag::LogLevel::kPosition, name_.c_str(),
                                                       *megabytes);
  }
  std::remove(name_.c_str());
}

}  // namespace tallow::fallback
