#include "load/job/block_reader.hpp"

#include <filesystem>
#include <utility>

#include "common/text.hpp"

namespace tallow::load {
namespace {

constexpr const char* kKeepFallbackFile = "PRESERVE_RESTART_INFO";

std::filesystem::path modulePathOrDefault(const std::string& path) {
  return path.empty() ? client::Module::besideProgram()
                      : std::filesystem::path(tools::toWide(path));
}

}  // namespace

BlockStream::BlockStream(const std::string& modulePath, const std::string& initString,
                         const std::string& pipe)
    : module_(modulePathOrDefault(modulePath)) {
  handle_ = module_.init(tools::toAnsi(initString), "tallow-load");
  module_.setAttribute(handle_, "CHARSET_NAME", "UTF8");
  module_.setAttribute(handle_, kKeepFallbackFile, "YES");
  instance_.emplace(module_.open(handle_, pipe));
  for (std::vector<std::byte>& buffer : buffers_) buffer.resize(instance_->blockSize());
}

std::optional<std::string_view> BlockStream::read() {
  std::swap(buffers_[0], buffers_[1]);
  std::vector<std::byte>& buffer = buffers_[0];
  const client::ReadResult result = instance_->read(buffer);
  if (result.atEnd()) return std::nullopt;
  return std::string_view(reinterpret_cast<const char*>(buffer.data()), result.length);
}

void BlockStream::finish() {
  module_.setAttribute(handle_, kKeepFallbackFile, "NO");
  instance_->closeR();
  module_.shut();
}

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
