#include "load/block_reader.hpp"

#include <chrono>
#include <memory>
#include <utility>

namespace tallow::load {
namespace {

/// A read can be interrupted only while it waits for the pipe, so that is tried again.
constexpr std::chrono::milliseconds kInterruptAgain{10};

tools::UniqueHandle thisThread() {
  HANDLE handle = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &handle, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  return tools::UniqueHandle(handle);
}

}  // namespace

BlockReader::BlockReader(const std::string& modulePath, const std::string& initString,
                         const std::string& pipe, bool ahead) {
  if (ahead) thread_ = std::jthread([this](const std::stop_token& stop) { serve(stop); });
  begin([&] {
    threadHandle_ = thisThread();
    stream_.emplace(modulePath, initString, pipe);
  }).get();
}

BlockReader::~BlockReader() {
  while (ahead_.valid() && ahead_.wait_for(kInterruptAgain) == std::future_status::timeout) {
    CancelSynchronousIo(threadHandle_.get());
  }
}

std::optional<std::string_view> BlockReader::read() {
  if (ahead_.valid()) return ahead_.get();
  return begin([this] { return stream_->read(); }).get();
}

void BlockReader::readAhead() {
  if (thread_.joinable()) ahead_ = begin([this] { return stream_->read(); });
}

bool BlockReader::dropReadAhead() {
  return ahead_.valid() && ahead_.get().has_value();
}

std::uint64_t BlockReader::getPos() {
  return begin([this] { return stream_->getPos(); }).get();
}

void BlockReader::setPos(std::uint64_t position) {
  begin([&] { stream_->setPos(position); }).get();
}

void BlockReader::finish() {
  begin([this] { stream_->finish(); }).get();
}

/// Hands the work to the thread, which must have none. Without a thread it is done at once.
template <typename Work>
std::future<std::invoke_result_t<Work>> BlockReader::begin(Work work) {
  // The holder of the work has to be copyable.
  auto task = std::make_shared<std::packaged_task<std::invoke_result_t<Work>()>>(std::move(work));
  auto result = task->get_future();
  if (!thread_.joinable()) {
    (*task)();
    return result;
  }
  {
    const std::lock_guard lock(mutex_);
    work_ = [task] { (*task)(); };
  }
  changed_.notify_one();
  return result;
}

void BlockReader::serve(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (changed_.wait(lock, stop, [this] { return work_ != nullptr; })) {
    const std::function<void()> work = std::exchange(work_, nullptr);
    lock.unlock();
    work();
    lock.lock();
  }
  stream_.reset();
}

}  // namespace tallow::load
