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
constexpr double kSilence = 3;  // seconds without progress after which the line says so

// The columns that a line can use without wrapping.
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
      start_(Clock::now()),
      drawnSince_(start_) {
  if (!standardErrorIsTerminal()) return;
  drawer_ = std::jthread([this](const std::stop_token& stop) { draw(stop); });
}

Progress::~Progress() = default;

void Progress::setDetail(const std::function<std::string()>& detail) {
  if (!drawer_.joinable()) return;
  const std::lock_guard lock(mutex_);
  detail_ = detail();
}

void Progress::waitFor(std::string what) {
  const std::lock_guard lock(mutex_);
  waitingFor_ = std::move(what);
  waitingAt_ = bytes_.load(std::memory_order_relaxed);
}

void Progress::draw(const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any wake;
  std::unique_lock lock(mutex);
  std::size_t drawn = 0;
  while (!wake.wait_for(lock, stop, kRedraw, [] { return false; }) && !stop.stop_requested()) {
    const Clock::time_point now = Clock::now();
    const std::uint64_t bytes = bytes_.load(std::memory_order_relaxed);
    if (std::exchange(drawnBytes_, bytes) != bytes) drawnSince_ = now;
    std::string text = line(now).substr(0, terminalWidth());
    const std::size_t length = text.size();
    if (length < drawn) text.append(drawn - length, ' ');
    drawn = length;
    writeToStandardError("\r" + text);
  }
  if (drawn > 0) writeToStandardError("\r" + std::string(drawn, ' ') + "\r");
}

std::string Progress::line(Clock::time_point now) const {
  const double elapsed = std::chrono::duration<double>(now - start_).count();
  const double silence = std::chrono::duration<double>(now - drawnSince_).count();
  const std::lock_guard lock(mutex_);
  if (!waitingFor_.empty() && drawnBytes_ == waitingAt_)
    return waitingFor_ + ", " + formatDuration(silence);
  if (shows_ == Shows::kTime) return label_ + ", " + formatDuration(elapsed);
  std::string text = amounts(drawnBytes_, elapsed);
  if (silence >= kSilence) text += ", nothing new for " + formatDuration(silence);
  if (!detail_.empty()) text += ", " + detail_;
  return text;
}

std::string Progress::amounts(std::uint64_t bytes, double elapsed) const {
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
  return text;
}

}  // namespace tallow::tools
