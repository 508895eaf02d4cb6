#include "load/target/call_watch.hpp"

#include <process.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <utility>

#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

constexpr DWORD kLookEvery = 500;  // milliseconds

std::atomic<std::uint64_t> callBegan = 0;  // system ticks; 0: no call is running

}  // namespace

WatchedCall::WatchedCall() noexcept {
  callBegan.store(GetTickCount64(), std::memory_order_relaxed);
}

WatchedCall::~WatchedCall() {
  callBegan.store(0, std::memory_order_relaxed);
}

CallWatch::CallWatch(std::chrono::seconds limit, std::function<void()> onSilence)
    : limit_(limit),
      onSilence_(std::move(onSilence)),
      ended_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  if (ended_) {
    thread_ = tools::UniqueHandle(
        reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, &CallWatch::main, this, 0, nullptr)));
  }
  if (!thread_) throw tools::ToolError("the system has no room for a thread; end other programs");
}

CallWatch::~CallWatch() {
  SetEvent(ended_.get());
  WaitForSingleObject(thread_.get(), INFINITE);
}

unsigned __stdcall CallWatch::main(void* self) {
  static_cast<const CallWatch*>(self)->watch();
  return 0;
}

void CallWatch::watch() const {
  while (WaitForSingleObject(ended_.get(), kLookEvery) == WAIT_TIMEOUT) {
    const std::uint64_t began = callBegan.load(std::memory_order_relaxed);
    const std::uint64_t now = GetTickCount64();
    if (began == 0 || now < began) continue;
    if (std::chrono::milliseconds(now - began) > limit_) onSilence_();
  }
}

}  // namespace tallow::load
