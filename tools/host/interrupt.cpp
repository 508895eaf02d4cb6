#include "host/interrupt.hpp"

#include <chrono>
#include <cstdio>

#include "common/program.hpp"

namespace tallow::host {
namespace {

constexpr std::chrono::milliseconds kTryAgain{5};
constexpr std::chrono::seconds kPatience{2};

std::atomic<Interrupt*> current = nullptr;

HANDLE duplicateOfThisThread() {
  HANDLE thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  return thread;
}

}  // namespace

Interrupt::Interrupt()
    : caller_(duplicateOfThisThread()), wake_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
  canceller_ = std::thread([this] { cancelUntilReturned(); });
  current = this;
  SetConsoleCtrlHandler(&Interrupt::onControl, TRUE);
}

Interrupt::~Interrupt() {
  SetConsoleCtrlHandler(&Interrupt::onControl, FALSE);
  current = nullptr;
  ending_ = true;
  SetEvent(wake_.get());
  canceller_.join();
}

BOOL WINAPI Interrupt::onControl(DWORD event) {
  Interrupt* const interrupt = current;
  if (interrupt == nullptr || (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)) return FALSE;
  if (interrupt->requested_.exchange(true)) {
    // Not an orderly end: the module must not be unloaded under a request that is still running.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(interrupt->forcedStatus_.load()));
  }
  SetEvent(interrupt->wake_.get());
  return TRUE;
}

void Interrupt::cancelUntilReturned() {
  WaitForSingleObject(wake_.get(), INFINITE);
  const auto start = std::chrono::steady_clock::now();
  bool told = false;
  while (!ending_) {
    {
      // The request may be between two system calls, so one attempt is not enough.
      const std::lock_guard lock(mutex_);
      if (cancellable_) CancelSynchronousIo(caller_.get());
      const bool waited = std::chrono::steady_clock::now() - start > kPatience;
      if (cancellable_ && waited && !told) {
        told = true;
        tools::printError(
            "the module waits for the writer and cannot be interrupted; start or end the writer, "
            "or press Ctrl-C again to end this program at once");
      }
    }
    WaitForSingleObject(wake_.get(), static_cast<DWORD>(kTryAgain.count()));
  }
}

void Interrupt::Cancellable::set(bool cancellable) {
  const std::lock_guard lock(interrupt_.mutex_);
  interrupt_.cancellable_ = cancellable;
}

}  // namespace tallow::host
