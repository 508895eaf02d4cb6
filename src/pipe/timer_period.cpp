#include "pipe/timer_period.hpp"

#include <windows.h>

#include <mmsystem.h>

namespace tallow::pipe {

namespace {

constexpr UINT kPeriod = 1;  // milliseconds

}  // namespace

void TimerPeriod::request() noexcept {
  if (!held_) held_ = timeBeginPeriod(kPeriod) == TIMERR_NOERROR;
}

void TimerPeriod::release() noexcept {
  if (held_) timeEndPeriod(kPeriod);
  held_ = false;
}

}  // namespace tallow::pipe
