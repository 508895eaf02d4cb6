#include "diag/application.hpp"

#include <memory>
#include <new>

#include "diag/command_line.hpp"
#include "diag/exception_runtime.hpp"
#include "diag/language_library.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::diag {

namespace {

// Made at the start, since nothing can be formatted once memory has run out. Raising it copies the
// exception. The copy shares the text and allocates only the exception object, for which there is a
// reserve.
constinit const CErrMsgException* outOfMemory = nullptr;

void raiseOutOfMemory() {
  if (outOfMemory == nullptr) throw std::bad_alloc();
  throw CErrMsgException(*outOfMemory);
}

}  // namespace

bool CTallowinApp::start(HMODULE module) noexcept {
  try {
    module_ = module;
    startExceptionRuntime();
    std::set_new_handler(raiseOutOfMemory);
    if (!loadLanguageLibrary(path())) return false;
    // NOLINTNEXTLINE(bugprone-throw-keyword-missing): raised when memory has run out
    outOfMemory = new CErrMsgException(MessageId::kOutOfMemory, message<MessageId::kOutOfMemory>());
    threadId_ = GetCurrentThreadId();
    setUpLog(hostProgramName().c_str(), message<MessageId::kLogDescription>().c_str(), nullptr);
    return true;
  } catch (...) {
    end();
    return false;
  }
}

void CTallowinApp::end() noexcept {
  delete outOfMemory;
  outOfMemory = nullptr;
  freeLanguageLibrary();
  endExceptionRuntime();
}

std::wstring CTallowinApp::path() const {
  constexpr DWORD kRoom = 32768;  // characters of the longest path and its NUL
  std::wstring text(kRoom, L'\0');
  const DWORD length = GetModuleFileNameW(module_, text.data(), kRoom);
  text.resize(length < kRoom ? length : 0);
  return text;
}

CTallowinApp& application() noexcept {
  static constinit CTallowinApp instance;
  return instance;
}

std::string hostProgramName() {
  return firstWord(GetCommandLineA());
}

}  // namespace tallow::diag
