// A system timer fine enough for pauses of a millisecond.
#pragma once

namespace tallow::pipe {

// Asks for a timer period of one millisecond while it is held; without it a pause of 1 ms may last
// up to 15.6 ms. A refusal is ignored: the pauses are longer then.
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
