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

bool standardErrorIsTerminal();

// Draws its line on standard error again and again, from a thread of its own, so also while the job
// is blocked. Does nothing if standard error is not a terminal. The line disappears with the
// object.
class Progress {
 public:
  // The line begins with `label`. With `totalBytes` it shows the time that is left.
  Progress(std::string label, std::optional<std::uint64_t> totalBytes);
  // Shows only the label and the time that has passed.
  explicit Progress(std::string label);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Cheap enough to be called for each block.
  void update(std::uint64_t bytes, std::uint64_t blocks) noexcept {
    bytes_.store(bytes, std::memory_order_relaxed);
    blocks_.store(blocks, std::memory_order_relaxed);
  }
  // Shows `what` ("waiting for a writer") and for how long, until update() reports more bytes.
  void waitFor(std::string what);
  // Sets the text at the end of the line. Does nothing if no line is drawn.
  void setDetail(const std::function<std::string()>& detail);
  // Where a restarted job continues. What lies before does not count for the rate.
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
  // Used by the drawing thread only: the amount that it has seen last, and since when.
  std::uint64_t drawnBytes_ = 0;
  Clock::time_point drawnSince_;
  std::jthread drawer_;
};

}  // namespace tallow::tools
