#include "load/job/writer_watch.hpp"

#include <windows.h>

#include <utility>

namespace tallow::load {
namespace {

constexpr DWORD kLookEvery = 100;  // milliseconds

}  // namespace

WriterWatch::WriterWatch(const tools::WriterWait& wait,
                         std::function<void(const std::string&)> giveUp)
    : wait_(wait), giveUp_(std::move(giveUp)), ended_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  if (wait_.hasEnd()) thread_ = std::thread([this] { look(); });
}

WriterWatch::~WriterWatch() {
  if (!thread_.joinable()) return;
  SetEvent(ended_.get());
  thread_.join();
}

void WriterWatch::look() {
  while (WaitForSingleObject(ended_.get(), kLookEvery) == WAIT_TIMEOUT) {
    const std::lock_guard lock(mutex_);
    if (blocks_ > 0 && wait_.isOver(Clock::now() - began_, blocks_)) giveUp_(wait_.text());
  }
}

WriterWatch::Wait::Wait(WriterWatch& watch, std::uint64_t blocks) : watch_(watch) {
  const std::lock_guard lock(watch_.mutex_);
  watch_.blocks_ = blocks;
  watch_.began_ = Clock::now();
}

WriterWatch::Wait::~Wait() {
  const std::lock_guard lock(watch_.mutex_);
  watch_.blocks_ = 0;
}

}  // namespace tallow::load
