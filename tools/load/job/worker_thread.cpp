#include "load/job/worker_thread.hpp"

#include <process.h>

#include <cstdint>
#include <utility>

#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

tools::UniqueHandle makeEvent() {
  return tools::UniqueHandle(CreateEventW(nullptr, FALSE, FALSE, nullptr));
}

}  // namespace

WorkerThread::WorkerThread() : begun_(makeEvent()), done_(makeEvent()) {
  if (begun_ && done_) {
    thread_ = tools::UniqueHandle(reinterpret_cast<HANDLE>(
        _beginthreadex(nullptr, 0, &WorkerThread::main, this, 0, nullptr)));
  }
  if (!thread_) throw tools::ToolError("the system has no room for a thread; end other programs");
}

WorkerThread::~WorkerThread() {
  work_ = nullptr;
  SetEvent(begun_.get());
  WaitForSingleObject(thread_.get(), INFINITE);
}

void WorkerThread::begin(std::function<void()> work) {
  work_ = std::move(work);
  SetEvent(begun_.get());
}

void WorkerThread::wait() {
  WaitForSingleObject(done_.get(), INFINITE);
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void WorkerThread::interrupt() noexcept {
  constexpr DWORD kAgain = 10;  // milliseconds; only a wait that has begun can be interrupted
  while (WaitForSingleObject(done_.get(), kAgain) == WAIT_TIMEOUT) {
    CancelSynchronousIo(thread_.get());
  }
  failure_ = nullptr;
}

unsigned __stdcall WorkerThread::main(void* self) {
  static_cast<WorkerThread*>(self)->serve();
  return 0;
}

void WorkerThread::serve() {
  for (;;) {
    WaitForSingleObject(begun_.get(), INFINITE);
    if (!work_) return;
    try {
      work_();
    } catch (...) {
      failure_ = std::current_exception();
    }
    SetEvent(done_.get());
  }
}

}  // namespace tallow::load
