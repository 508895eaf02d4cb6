#include "entry/application.hpp"

#include <memory>
#include <new>

#include "diag/language_library.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "runtime/exception_runtime.hpp"

namespace tallow::entry {
namespace {

using diag::CErrMsgException;

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
    runtime::startExceptionRuntime();
    std::set_new_handler(raiseOutOfMemory);
    if (!diag::loadLanguageLibrary(path())) return false;
    const std::string text = diag::message<MessageId::kOutOfMemory>();
    // NOLINTNEXTLINE(bugprone-throw-keyword-missing): raised when memory has run out
    outOfMemory = new CErrMsgException(MessageId::kOutOfMemory, text);
    threadId_ = GetCurrentThreadId();
    diag::setUpLog(diag::hostProgramName().c_str(),
                   diag::message<MessageId::kLogDescription>().c_str(), nullptr);
    return true;
  } catch (...) {
    end();
    return false;
  }
}

void CTallowinApp::end() noexcept {
  delete outOfMemory;
  outOfMemory = nullptr;
  diag::freeLanguageLibrary();
  runtime::endExceptionRuntime();
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

}  // namespace tallow::entry
