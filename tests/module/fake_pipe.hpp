// A pipe with scripted answers, in place of the system's.
#pragma once

#include <windows.h>

#include <ctime>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "support/import_hook.hpp"

namespace tallow::test {

// Replaces the module's ReadFile, Sleep and clock. Every Sleep is noted and returns at once. The
// clock advances only by the time that a read takes.
class FakePipe {
 public:
  explicit FakePipe(HMODULE module)
      : read_(module, "ReadFile",
              [this](HANDLE, void* buffer, DWORD size, DWORD* count, OVERLAPPED*) {
                return answer(buffer, size, *count);
              }),
        sleep_(module, "Sleep", [this](DWORD milliseconds) { pauses_.push_back(milliseconds); }),
        time_(module, "_time64", [this](__time64_t* result) {
          if (result != nullptr) *result = now_;
          return now_;
        }) {}

  // What the next reads return, in order.
  void deliver(std::string data) { script_.push_back({true, 0, std::move(data), 0}); }
  void fail(DWORD error, int seconds = 0) { script_.push_back({false, error, {}, seconds}); }
  // What every read after the script returns; each takes `seconds`.
  void failEveryRead(DWORD error, int seconds) { behind_ = {false, error, {}, seconds}; }

  int reads() const { return reads_; }
  const std::vector<DWORD>& pauses() const { return pauses_; }
  const std::vector<DWORD>& wanted() const { return wanted_; }  // bytes that each read asked for

 private:
  struct Step {
    bool good = false;
    DWORD error = ERROR_BROKEN_PIPE;
    std::string data;
    int seconds = 0;
  };

  BOOL answer(void* buffer, DWORD size, DWORD& count) {
    Step step = behind_;
    if (!script_.empty()) {
      step = script_.front();
      script_.pop_front();
    }
    ++reads_;
    wanted_.push_back(size);
    now_ += step.seconds;
    count = static_cast<DWORD>(step.data.copy(static_cast<char*>(buffer), size));
    SetLastError(step.error);
    return step.good;
  }

  std::deque<Step> script_;
  Step behind_;
  int reads_ = 0;
  std::vector<DWORD> pauses_;
  std::vector<DWORD> wanted_;
  __time64_t now_ = 1'000'000'000;
  Hook<struct ReadFileTag, BOOL(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*)> read_;
  Hook<struct SleepTag, void(DWORD)> sleep_;
  Hook<struct TimeTag, __time64_t(__time64_t*)> time_;
};

}  // namespace tallow::test
