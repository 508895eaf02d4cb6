// One line on the terminal that says how a job is doing.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

namespace tallow::tools {

/// True when standard error is a terminal.
bool standardErrorIsTerminal();

/// Draws and redraws its line on standard error from a thread of its own, also while the job is
/// blocked; does nothing at all when standard error is not a terminal. The line goes when the
/// object does.
class Progress {
 public:
  /// `label` begins the line; `totalBytes`, when known, gives the time left.
  Progress(std::string label, std::optional<std::uint64_t> totalBytes);
  /// Shows only for how long it has been going on.
  explicit Progress(std::string label);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Cheap enough to be called for each block.
  void update(std::uint64_t bytes, std::uint64_t blocks) noexcept {
    bytes_.store(bytes, std::memory_order_relaxed);
    blocks_.store(blocks, std::memory_order_relaxed);
  }
  /// Shows this ("waiting for a writer") and for how long, until update() brings more bytes.
  void waitFor(std::string what);
  /// Text for the end of the line. Does nothing when nobody sees it.
  void setDetail(const std::function<std::string()>& detail);
  /// Where a restarted job goes on: what lies before does not count for the rate.
  void startAt(std::uint64_t bytes, std::uint64_t blocks) noexcept {
    firstBytes_.store(bytes, std::memory_order_relaxed);
    update(bytes, blocks);
  }

 private:
  using Clock = std::chrono::steady_clock;

  void draw(const std::stop_token& stop);
  std::string line(Clock::time_point now) const;
  std::string amounts(std::uint64_t bytes, double elapsed) const;

  enum class Shows { kAmounts, kTime };
  Progress(std::string label, std::optional<std::uint64_t> totalBytes, Shows shows);

  std::string label_;
  Shows shows_;
  mutable std::mutex mutex_;
  std::string detail_;           // guarded by mutex_
  std::string waitingFor_;       // guarded by mutex_
  std::uint64_t waitingAt_ = 0;  // bytes when the wait began; guarded by mutex_
  std::optional<std::uint64_t> totalBytes_;
  std::atomic<std::uint64_t> firstBytes_ = 0;
  std::atomic<std::uint64_t> bytes_ = 0;
  std::atomic<std::uint64_t> blocks_ = 0;
  Clock::time_point start_;
  std::uint64_t drawnBytes_ = 0;  // the drawer's: the amount that it has seen last, and since when
  Clock::time_point drawnSince_;
  std::jthread drawer_;
};

}  // namespace tallow::tools
