#include "host/interrupt.hpp"

#include <cstdlib>
#include <utility>

#include "common/program.hpp"

namespace tallow::host {
namespace {

constexpr std::chrono::milliseconds kTryAgain{5};
constexpr std::chrono::milliseconds kLookAgain{100};
constexpr std::chrono::seconds kCancelPatience{2};

std::atomic<Interrupt*> current = nullptr;

HANDLE duplicateOfThisThread() {
  HANDLE thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  return thread;
}

}  // namespace

Interrupt::Interrupt(LastWords lastWords)
    : lastWords_(std::move(lastWords)),
      caller_(duplicateOfThisThread()),
      wake_(CreateEventW(nullptr, FALSE, FALSE, nullptr)) {
  watcher_ = std::thread([this] { watch(); });
  current = this;
  SetConsoleCtrlHandler(&Interrupt::onControl, TRUE);
}

Interrupt::~Interrupt() {
  SetConsoleCtrlHandler(&Interrupt::onControl, FALSE);
  current = nullptr;
  ending_ = true;
  SetEvent(wake_.get());
  watcher_.join();
}

BOOL WINAPI Interrupt::onControl(DWORD event) {
  Interrupt* const interrupt = current;
  if (interrupt == nullptr || (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)) return FALSE;
  EndReason none = EndReason::kNone;
  if (!interrupt->reason_.compare_exchange_strong(none, EndReason::kCtrlC)) {
    const std::lock_guard lock(interrupt->mutex_);
    interrupt->endProcess(interrupt->insideRequest_);
  }
  SetEvent(interrupt->wake_.get());
  return TRUE;
}

// Ends the process abruptly, because the module must not be unloaded while one of its requests
// still runs.
void Interrupt::endProcess(bool insideRequest) {
  TerminateProcess(GetCurrentProcess(), lastWords_(reason_, insideRequest));
  std::abort();
}

void Interrupt::watch() {
  while (!ending_) {
    const auto pause = requested() ? kTryAgain : kLookAgain;
    WaitForSingleObject(wake_.get(), static_cast<DWORD>(pause.count()));
    const std::lock_guard lock(mutex_);
    if (insideRequest_) endRequest();
  }
}

// Cancels the current request if there is a reason to.
void Interrupt::endRequest() {
  const auto now = Clock::now();
  const bool isOver = patience_ && patience_(now - requestStart_);
  if (isOver) {
    EndReason none = EndReason::kNone;
    reason_.compare_exchange_strong(none, EndReason::kWaitOver);
  }
  if (!requested()) return;
  if (!std::exchange(cancelling_, true)) cancelStart_ = now;
  // The request may be between two system calls, so one attempt is not enough.
  CancelSynchronousIo(caller_.get());
  if (now - cancelStart_ < kCancelPatience) return;
  if (isOver) endProcess(true);
  if (std::exchange(advised_, true)) return;
  tools::printError(
      "the module waits for the writer and cannot be interrupted; start or end the writer, or "
      "press "
      "Ctrl-C again to end this program at once");
}

Interrupt::Cancellable::Cancellable(Interrupt& interrupt, const Patience& patience)
    : interrupt_(interrupt) {
  const std::lock_guard lock(interrupt_.mutex_);
  interrupt_.patience_ = patience;
  interrupt_.requestStart_ = Clock::now();
  interrupt_.insideRequest_ = true;
}

Interrupt::Cancellable::~Cancellable() {
  const std::lock_guard lock(interrupt_.mutex_);
  interrupt_.insideRequest_ = false;
}

}  // namespace tallow::host
