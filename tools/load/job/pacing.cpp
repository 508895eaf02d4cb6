#include "load/job/pacing.hpp"

#include <algorithm>
#include <string>
#include <thread>

#include "common/formatting.hpp"
#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kFirstPause{100};
constexpr milliseconds kLongestPause{5000};

}  // namespace

std::optional<milliseconds> RetryBudget::nextPause() {
  if (spent_ >= total_) return std::nullopt;
  pause_ = pause_ == milliseconds{0} ? kFirstPause : std::min(pause_ * 2, kLongestPause);
  const milliseconds pause = std::min(pause_, total_ - spent_);
  spent_ += pause;
  return pause;
}

void RetryBudget::renew() noexcept {
  spent_ = pause_ = milliseconds{0};
}

void Patience::insist(const std::function<void()>& attempt,
                      const std::function<bool(const DatabaseError&)>& passes) {
  for (;;) {
    const steady_clock::time_point start = steady_clock::now();
    try {
      attempt();
      return;
    } catch (const DatabaseError& error) {
      if (!passes(error)) throw;
      budget_.spend(std::chrono::duration_cast<milliseconds>(steady_clock::now() - start));
      pauseAfter(error);
    }
  }
}

void Patience::pauseAfter(const DatabaseError& error) {
  if (const std::optional<milliseconds> pause = budget_.nextPause()) {
    std::this_thread::sleep_for(*pause);
    return;
  }
  const std::string time =
      tools::formatCount(static_cast<std::uint64_t>(total_.count()), "second") + ": " +
      error.what();
  throw tools::ToolError(error.isLockedByAnother()
                             ? "the database has been locked by another program for " + time +
                                   "; wait for that program, or end it"
                             : "the database has been out of reach for " + time,
                         tools::ExitStatus::kRestartable);
}

}  // namespace tallow::load
