#include "pipe/pipe_input.hpp"

#include <windows.h>

#include <mmsystem.h>
#include <sys/stat.h>

#include <optional>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "pipe/pipe_name.hpp"
#include "pipe/wide_name.hpp"
#include "tallow/tallow.h"

namespace tallow::pipe {
namespace {

using diag::raise;

constexpr UINT kTimerPeriod = 1;  // milliseconds

// The name in the form for the system calls. If wide is empty, the narrow calls are used.
struct SystemName {
  const std::string& narrow;
  std::u16string wide;

  const wchar_t* wideText() const noexcept {
    return reinterpret_cast<const wchar_t*>(wide.c_str());
  }
};

[[noreturn]] void raiseNotOpened(const std::string& name, const char* reason) {
  raise<MessageId::kPipeNotOpened>(name.c_str(), reason);
}

SystemName systemName(const std::string& name, const config::OptionsRecord& options) {
  if (!config::isWideNameCharset(options)) return {name, {}};
  std::optional<std::u16string> wide = widenName(name);
  if (!wide) raiseNotOpened(name, "ucnv_convert() error in converting Filename");
  return {name, std::move(*wide)};
}

// True if the pipe exists, free or busy. Unlike opening it, this does not consume a waiting
// instance. It complements the status call, which on some systems cannot see pipes and which cannot
// take names that need the wide calls.
bool isWaitingPipe(const SystemName& name) {
  constexpr DWORD kTimeout = 1;  // milliseconds
  const BOOL waits = name.wide.empty() ? WaitNamedPipeA(name.narrow.c_str(), kTimeout)
                                       : WaitNamedPipeW(name.wideText(), kTimeout);
  if (waits) return true;
  const DWORD error = GetLastError();
  return error == ERROR_SEM_TIMEOUT || error == ERROR_PIPE_BUSY;
}

// One word sets both the share mode of the client end and the blocking mode of the server end. The
// interface requires this: with full blocks, the server end blocks and the client end is not
// shared.
DWORD modeWord(const config::OptionsRecord& options) {
  static_assert(FILE_SHARE_READ == PIPE_NOWAIT);
  return options.needFullBlock ? 0 : PIPE_NOWAIT;
}

HANDLE connect(const SystemName& name, DWORD mode) {
  return name.wide.empty()
             ? CreateFileA(name.narrow.c_str(), GENERIC_READ, mode, nullptr, OPEN_EXISTING, 0,
                           nullptr)
             : CreateFileW(name.wideText(), GENERIC_READ, mode, nullptr, OPEN_EXISTING, 0, nullptr);
}

HANDLE createServerEnd(const SystemName& name, DWORD mode, DWORD bufferSize) {
  constexpr DWORD kInstances = 4;
  constexpr DWORD kDefaultTimeout = 100;  // milliseconds
  return name.wide.empty()
             ? CreateNamedPipeA(name.narrow.c_str(), PIPE_ACCESS_INBOUND, mode, kInstances,
                                bufferSize, bufferSize, kDefaultTimeout, nullptr)
             : CreateNamedPipeW(name.wideText(), PIPE_ACCESS_INBOUND, mode, kInstances, bufferSize,
                                bufferSize, kDefaultTimeout, nullptr);
}

}  // namespace

void TimerPeriod::request() noexcept {
  if (!held_) held_ = timeBeginPeriod(kTimerPeriod) == TIMERR_NOERROR;
}

void TimerPeriod::release() noexcept {
  if (held_) timeEndPeriod(kTimerPeriod);
  held_ = false;
}

std::string shortSystemErrorText(unsigned long error) {
  constexpr std::size_t kLongest = 249;
  return diag::systemErrorText(error).substr(0, kLongest);
}

void openPipe(PipeInput& pipe, const config::OptionsRecord& options, const std::string& name) {
  // In this run-time library the status call is a directory look-up, which does not consume a
  // waiting instance. A status call that opens the name would.
  struct _stat64i32 status = {};
  const bool found = _stat64i32(name.c_str(), &status) == 0;
  if (found && (status.st_mode & _S_IFDIR) != 0) {
    raise<MessageId::kPipeNameIsDirectory>(name.c_str());
  }
  if (!isPipeName(name)) {
    raiseNotOpened(name, R"(on windows named pipe syntax is: \\.\pipe\pipename)");
  }
  const SystemName spelled = systemName(name, options);
  const auto bufferSize = static_cast<DWORD>(2 * options.blockSize);
  if (pipe.handle) diag::raiseWithCode<MessageId::kPipeAlreadyOpen>(pmrcAlreadyOpen);
  const DWORD mode = modeWord(options);
  pipe.handle = UniqueFileHandle(found || isWaitingPipe(spelled)
                                     ? connect(spelled, mode)
                                     : createServerEnd(spelled, mode, bufferSize));
  const DWORD error = GetLastError();
  if (!pipe.handle) raiseNotOpened(name, shortSystemErrorText(error).c_str());
  pipe.timerPeriod.request();
  diag::log(diag::LogLevel::kTrace, MessageId::kTrace, "Opened pipe \"%s\".", name.c_str());
}

}  // namespace tallow::pipe
