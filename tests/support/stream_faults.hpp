// Makes the calls fail that the module sends to its fallback file.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <utility>

#include "support/import_hook.hpp"

namespace tallow::test {

enum class StreamCall { kOpen, kRead, kWrite, kFlush, kSeek, kTell, kClose, kRemove };

// A read that fails reads half, a write writes half, and a close closes all the same; any other
// call that fails does nothing. The log's streams, which the module opens with fopen, are left
// alone.
//
// Destroy it before the module.
class StreamFaults {
 public:
  // Asked at each call whether it fails. None fails without a rule.
  using Rule = std::function<bool(StreamCall)>;
  explicit StreamFaults(HMODULE module, Rule fails = nullptr);
  // Every such call fails, after `good` of them that still succeed.
  StreamFaults(HMODULE module, StreamCall failing, int good = 0);

  void setRule(Rule fails) { fails_ = std::move(fails); }

  // The last error that a call leaves when it fails; 0: it sets none.
  DWORD systemError = 0;
  // Gets the buffer of a read, its size and the number of bytes read; returns the number that the
  // module gets.
  std::function<std::size_t(void*, std::size_t, std::size_t)> onRead;
  // Called after each call, whether it failed or not.
  std::function<void()> onDone;

 private:
  template <class Run>
  auto carryOut(StreamCall call, const std::FILE* stream, Run run);

  Rule fails_;
  const std::FILE* log_ = nullptr;  // the latest stream of the log
  Hook<struct LogOpenTag, std::FILE*(const char*, const char*)> openLog_;
  Hook<struct OpenTag, std::FILE*(const char*, const char*, int)> open_;
  Hook<struct FreadTag, std::size_t(void*, std::size_t, std::size_t, std::FILE*)> read_;
  Hook<struct WriteTag, std::size_t(const void*, std::size_t, std::size_t, std::FILE*)> write_;
  Hook<struct FlushTag, int(std::FILE*)> flush_;
  Hook<struct SeekTag, int(std::FILE*, const fpos_t*)> seek_;
  Hook<struct TellTag, int(std::FILE*, fpos_t*)> tell_;
  Hook<struct CloseTag, int(std::FILE*)> close_;
  Hook<struct RemoveTag, int(const char*)> remove_;
};

}  // namespace tallow::test
