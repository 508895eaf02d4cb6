#include "common/progress.hpp"

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <utility>

#include "common/formatting.hpp"
#include "common/program.hpp"

namespace tallow::tools {
namespace {

constexpr std::chrono::milliseconds kRedraw{250};

/// Columns that may be used without wrapping.
std::size_t terminalWidth() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info)) return 79;
  const int columns = info.srWindow.Right - info.srWindow.Left;
  return columns > 20 ? static_cast<std::size_t>(columns) : 79;
}

}  // namespace

bool standardErrorIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != 0;
}

Progress::Progress(std::string label, std::optional<std::uint64_t> totalBytes)
    : Progress(std::move(label), totalBytes, Shows::kAmounts) {}

Progress::Progress(std::string label) : Progress(std::move(label), std::nullopt, Shows::kTime) {}

Progress::Progress(std::string label, std::optional<std::uint64_t> totalBytes, Shows shows)
    : label_(std::move(label)),
      shows_(shows),
      totalBytes_(totalBytes),
      start_(std::chrono::steady_clock::now()) {
  if (!standardErrorIsTerminal()) return;
  drawer_ = std::jthread([this](const std::stop_token& stop) { draw(stop); });
}

Progress::~Progress() = default;

void Progress::setDetail(const std::function<std::string()>& detail) {
  if (!drawer_.joinable()) return;
  const std::lock_guard lock(detailMutex_);
  detail_ = detail();
}

void Progress::draw(const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any wake;
  std::unique_lock lock(mutex);
  std::size_t drawn = 0;
  while (!wake.wait_for(lock, stop, kRedraw, [] { return false; }) && !stop.stop_requested()) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    std::string text = line(elapsed.count()).substr(0, terminalWidth());
    const std::size_t length = text.size();
    if (length < drawn) text.append(drawn - length, ' ');
    drawn = length;
    writeToStandardError("\r" + text);
  }
  if (drawn > 0) writeToStandardError("\r" + std::string(drawn, ' ') + "\r");
}

std::string Progress::line(double elapsed) const {
  if (shows_ == Shows::kTime) return label_ + ", " + formatDuration(elapsed);
  const std::uint64_t bytes = bytes_.load(std::memory_order_relaxed);
  const std::uint64_t fresh = bytes - firstBytes_.load(std::memory_order_relaxed);
  std::string text = label_ + " " + formatBytes(bytes);
  if (totalBytes_) text += " of " + formatBytes(*totalBytes_);
  if (const std::uint64_t blocks = blocks_.load(std::memory_order_relaxed); blocks > 0) {
    text += ", " + formatCount(blocks, "block");
  }
  text += ", " + formatRate(fresh, elapsed) + ", " + formatDuration(elapsed);
  if (totalBytes_ && fresh > 0 && bytes < *totalBytes_) {
    const double left = static_cast<double>(*totalBytes_ - bytes) * elapsed;
    text += ", " + formatDuration(left / static_cast<double>(fresh)) + " left";
  }
  const std::lock_guard lock(detailMutex_);
  if (!detail_.empty()) text += ", " + detail_;
  return text;
}

}  // namespace tallow::tools
