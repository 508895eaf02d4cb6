#include "support/stream_faults.hpp"

#include <cerrno>

namespace tallow::test {
namespace {

StreamFaults::Rule eachAfter(StreamCall failing, int good) {
  return [failing, good](StreamCall call) mutable { return call == failing && --good < 0; };
}

}  // namespace

// Calls run(fails), unless the stream is the log's.
template <class Run>
auto StreamFaults::carryOut(StreamCall call, const std::FILE* stream, Run run) {
  if (stream != nullptr && stream == log_) return run(false);
  const bool fails = fails_ && fails_(call);
  const auto result = run(fails);
  if (fails && systemError != 0) {
    errno = EIO;
    SetLastError(systemError);
  }
  if (onDone) onDone();
  return result;
}

StreamFaults::StreamFaults(HMODULE module, StreamCall failing, int good)
    : StreamFaults(module, eachAfter(failing, good)) {}

StreamFaults::StreamFaults(HMODULE module, Rule rule)
    : fails_(std::move(rule)),
      openLog_(module, "fopen",
               [this](const char* name, const char* mode) {
                 std::FILE* const log = openLog_.original(name, mode);
                 log_ = log;
                 return log;
               }),
      open_(module, "_fsopen",
            [this](const char* name, const char* mode, int share) {
              return carryOut(StreamCall::kOpen, nullptr, [&](bool fails) {
                return fails ? nullptr : open_.original(name, mode, share);
              });
            }),
      read_(module, "fread",
            [this](void* buffer, std::size_t size, std::size_t items, std::FILE* stream) {
              return carryOut(StreamCall::kRead, stream, [&](bool fails) {
                const std::size_t got =
                    read_.original(buffer, size, fails ? items / 2 : items, stream);
                return onRead ? onRead(buffer, size * items, got) : got;
              });
            }),
      write_(module, "fwrite",
             [this](const void* bytes, std::size_t size, std::size_t items, std::FILE* stream) {
               return carryOut(StreamCall::kWrite, stream, [&](bool fails) {
                 return write_.original(bytes, size, fails ? items / 2 : items, stream);
               });
             }),
      flush_(module, "fflush",
             [this](std::FILE* stream) {
               return carryOut(StreamCall::kFlush, stream,
                               [&](bool fails) { return fails ? EOF : flush_.original(stream); });
             }),
      seek_(module, "fsetpos",
            [this](std::FILE* stream, const fpos_t* position) {
              return carryOut(StreamCall::kSeek, stream, [&](bool fails) {
                return fails ? -1 : seek_.original(stream, position);
              });
            }),
      tell_(module, "fgetpos",
            [this](std::FILE* stream, fpos_t* position) {
              return carryOut(StreamCall::kTell, stream, [&](bool fails) {
                return fails ? -1 : tell_.original(stream, position);
              });
            }),
      close_(module, "fclose",
             [this](std::FILE* stream) {
               return carryOut(StreamCall::kClose, stream, [&](bool fails) {
                 const int result = close_.original(stream);
                 if (stream == log_) log_ = nullptr;  // the next stream may have its address
                 return fails ? EOF : result;
               });
             }),
      remove_(module, "remove", [this](const char* name) {
        return carryOut(StreamCall::kRemove, nullptr,
                        [&](bool fails) { return fails ? -1 : remove_.original(name); });
      }) {}

}  // namespace tallow::test
