#include "pipe/pipe_read.hpp"

#include <ctime>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "pipe/pause.hpp"

namespace tallow::pipe {
namespace {

constexpr DWORD kPauseBeforeRead = 1;  // milliseconds, before every ReadFile

struct ReadAttempt {
  bool succeeded;
  DWORD count;
  DWORD error;  // taken before anything can change it
};

// One pause and one ReadFile into the rest of the block.
ReadAttempt attemptRead(PipeInput& pipe, const config::OptionsRecord& options, void* buffer,
                        std::uint32_t bytesRead, std::uint64_t blockNo) {
  Sleep(kPauseBeforeRead);
  ReadAttempt attempt = {};
  attempt.succeeded =
      ReadFile(pipe.handle.get(), static_cast<char*>(buffer) + bytesRead,
               static_cast<DWORD>(options.blockSize - bytesRead), &attempt.count, nullptr) != FALSE;
  attempt.error = GetLastError();
  if (attempt.succeeded) {
    diag::log(diag::LogLevel::kTrace, MessageId::kTrace,
              "Read %d bytes from pipe for block no. %I64u.", static_cast<int>(attempt.count),
              blockNo);
  }
  return attempt;
}

void requireOpen(const PipeInput& pipe) {
  if (!pipe.handle) diag::raise<MessageId::kPipeNotOpen>();
}

bool timeIsOver(const config::OptionsRecord& options, std::time_t start) {
  return options.timeoutEnabled &&
         std::difftime(std::time(nullptr), start) > options.timeoutSeconds;
}

}  // namespace

PipeRead readFullBlock(PipeInput& pipe, const config::OptionsRecord& options, void* buffer,
                       std::uint32_t& bytesRead, std::uint64_t blockNo) {
  bytesRead = 0;
  requireOpen(pipe);
  while (bytesRead < options.blockSize) {
    const ReadAttempt attempt = attemptRead(pipe, options, buffer, bytesRead, blockNo);
    if (attempt.succeeded) {
      if (attempt.count == 0) return {.end = true, .hash = true};
      bytesRead += attempt.count;
    } else if (attempt.error == ERROR_BROKEN_PIPE) {
      return {.end = true, .hash = false};
    } else if (attempt.error != ERROR_PIPE_LISTENING || bytesRead != 0) {
      diag::raise<MessageId::kPipeReadFailed>(shortSystemErrorText(attempt.error).c_str());
    }
  }
  return {.end = false, .hash = true};
}

PipeRead readAvailable(PipeInput& pipe, const config::OptionsRecord& options, void* buffer,
                       std::uint32_t& bytesRead, std::uint64_t blockNo) {
  bytesRead = 0;
  bool end = false;
  std::uint64_t pause = kFirstPause;
  bool fullInOnePiece = false;
  const std::time_t start = options.timeoutEnabled ? std::time(nullptr) : 0;
  requireOpen(pipe);
  while (bytesRead == 0 && !timeIsOver(options, start)) {
    const ReadAttempt attempt = attemptRead(pipe, options, buffer, bytesRead, blockNo);
    if (!attempt.succeeded) {
      if (attempt.error == ERROR_BROKEN_PIPE) return {.end = true, .hash = false};
      Sleep(static_cast<DWORD>(pause));
      pause = nextPause(pause, options.pipeWait);
      continue;
    }
    if (attempt.count == 0) {
      end = true;
      break;
    }
    bytesRead = attempt.count;
    fullInOnePiece = bytesRead == options.blockSize;
  }
  if (options.timeoutEnabled && !fullInOnePiece) return {.end = true, .hash = false};
  return {.end = end, .hash = true};
}

}  // namespace tallow::pipe
