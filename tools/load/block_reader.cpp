#include "load/block_reader.hpp"

namespace tallow::load {

BlockReader::BlockReader(const std::string& modulePath, const std::string& initString,
                         const std::string& pipe, bool ahead) {
  if (ahead) thread_.emplace();
  run([&] { stream_.emplace(modulePath, initString, pipe); });
}

BlockReader::~BlockReader() {
  if (ahead_) thread_->interrupt();
  run([this] { stream_.reset(); });
}

std::optional<std::string_view> BlockReader::read() {
  if (ahead_) {
    waitForAhead();
  } else {
    run([this] { block_ = stream_->read(); });
  }
  return block_;
}

void BlockReader::readAhead() {
  if (!thread_) return;
  ahead_ = true;
  thread_->begin([this] { block_ = stream_->read(); });
}

bool BlockReader::dropReadAhead() {
  if (!ahead_) return false;
  waitForAhead();
  return block_.has_value();
}

std::uint64_t BlockReader::getPos() {
  std::uint64_t position = 0;
  run([&] { position = stream_->getPos(); });
  return position;
}

void BlockReader::setPos(std::uint64_t position) {
  run([&] { stream_->setPos(position); });
}

void BlockReader::finish() {
  run([this] { stream_->finish(); });
}

void BlockReader::run(const std::function<void()>& work) {
  if (!thread_) {
    work();
    return;
  }
  thread_->begin(work);
  thread_->wait();
}

void BlockReader::waitForAhead() {
  ahead_ = false;  // even if it failed
  thread_->wait();
}

}  // namespace tallow::load
