// In place of the module's pipe: a script, or the real pipe with a look at each read. All tests
// that replace the module's ReadFile do so here, so only one of these can exist at a time.
#pragma once

#include <windows.h>

#include <ctime>
#include <functional>
#include <vector>

#include "support/import_hook.hpp"
#include "support/pipe_script.hpp"

namespace tallow::test {

// Answers the module's ReadFile. `answer` does what ReadFile does, the last error included.
class ReplacedReads {
 public:
  using Answer = std::function<BOOL(HANDLE pipe, void* buffer, DWORD size, DWORD* count)>;
  ReplacedReads(HMODULE module, Answer answer);

  BOOL original(HANDLE pipe, void* buffer, DWORD size, DWORD* count) const {
    return read_.original(pipe, buffer, size, count, nullptr);
  }

 private:
  Hook<struct ReadFileTag, BOOL(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*)> read_;
};

// Sees what each read got.
using OnRead = std::function<void(const PipeScript::Outcome&)>;

// Replaces the module's ReadFile, Sleep and clock: reads play the script, pauses are noted and take
// no time, and the clock advances only by the time that a read takes.
//
// It owns the script. Destroy it before the module or leave it to the module's unload: what it has
// replaced is put back only in a module that is still loaded.
class ScriptedPipe {
 public:
  explicit ScriptedPipe(HMODULE module, PipeScript script = {}, OnRead onRead = nullptr);

  PipeScript script;  // what has not been read yet

  const std::vector<DWORD>& pauses() const { return pauses_; }  // milliseconds
  const std::vector<DWORD>& wanted() const { return wanted_; }  // bytes that each read asked for

 private:
  BOOL read(void* buffer, DWORD size, DWORD* count);

  OnRead onRead_;
  std::vector<DWORD> pauses_;
  std::vector<DWORD> wanted_;
  __time64_t now_ = 1'000'000'000;
  ReplacedReads reads_;
  Hook<struct SleepTag, void(DWORD)> sleep_;
  Hook<struct TimeTag, __time64_t(__time64_t*)> time_;
};

// Lets the module read its real pipe, and shows what each read got.
class ObservedPipe {
 public:
  ObservedPipe(HMODULE module, OnRead onRead);

 private:
  ReplacedReads reads_;
};

}  // namespace tallow::test
