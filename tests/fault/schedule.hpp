// Decides when the swept function fails.
#pragma once

#include <windows.h>

#include <cstddef>
#include <limits>

namespace tallow::test {

// Counts the calls of one swept function from the thread that armed it, and says which of them
// fail: either call number `first` alone, or that one and all after it, at most `most` in all.
class FaultSchedule {
 public:
  void arm(std::size_t first, bool andAllAfter, std::size_t most) {
    *this = FaultSchedule();
    thread_ = GetCurrentThreadId();
    first_ = first;
    andAllAfter_ = andAllAfter;
    most_ = most;
  }
  void disarm() { thread_ = 0; }

  // Asked at every call of the swept function.
  bool strikes() {
    if (GetCurrentThreadId() != thread_) return false;
    ++calls_;
    const bool due = andAllAfter_ ? calls_ >= first_ : calls_ == first_;
    if (!due || injected_ == most_) return false;
    ++injected_;
    return true;
  }

  std::size_t injected() const { return injected_; }

 private:
  DWORD thread_ = 0;  // 0: nothing fails
  std::size_t first_ = 0;
  bool andAllAfter_ = false;
  std::size_t most_ = 0;
  std::size_t calls_ = 0;
  std::size_t injected_ = 0;
};

inline FaultSchedule& faultSchedule() {
  static FaultSchedule schedule;
  return schedule;
}

}  // namespace tallow::test
