// A system timer fine enough for pauses of a millisecond.
#pragma once

namespace tallow::pipe {

// Keeps the system timer at a period of one millisecond. Without it, a pause of 1 ms may last up to
// 15.6 ms. A refusal is ignored; the pauses are then longer.
class TimerPeriod {
 public:
  TimerPeriod() = default;
  ~TimerPeriod() { release(); }
  TimerPeriod(const TimerPeriod&) = delete;
  TimerPeriod& operator=(const TimerPeriod&) = delete;

  void request() noexcept;
  void release() noexcept;

 private:
  bool held_ = false;
};

}  // namespace tallow::pipe
