#include "support/scripted_pipe.hpp"

#include <utility>

namespace tallow::test {

ReplacedReads::ReplacedReads(HMODULE module, Answer answer)
    : read_(
          module, "ReadFile",
          [answer = std::move(answer)](HANDLE pipe, void* buffer, DWORD size, DWORD* count,
                                       OVERLAPPED*) { return answer(pipe, buffer, size, count); }) {
}

ScriptedPipe::ScriptedPipe(HMODULE module, PipeScript played, OnRead onRead)
    : script(std::move(played)),
      onRead_(std::move(onRead)),
      reads_(module, [this](HANDLE, void* buffer, DWORD size,
                            DWORD* count) { return read(buffer, size, count); }),
      sleep_(module, "Sleep", [this](DWORD milliseconds) { pauses_.push_back(milliseconds); }),
      time_(module, "_time64", [this](__time64_t* result) {
        if (result != nullptr) *result = now_;
        return now_;
      }) {}

BOOL ScriptedPipe::read(void* buffer, DWORD size, DWORD* count) {
  const PipeScript::Outcome got = script.read(size);
  wanted_.push_back(size);
  now_ += got.seconds;
  if (onRead_) onRead_(got);
  *count = static_cast<DWORD>(got.data.copy(static_cast<char*>(buffer), size));
  SetLastError(got.error);
  return got.error == 0 ? TRUE : FALSE;
}

ObservedPipe::ObservedPipe(HMODULE module, OnRead onRead)
    : reads_(module,
             [this, onRead = std::move(onRead)](HANDLE pipe, void* buffer, DWORD size,
                                                DWORD* count) -> BOOL {
               if (reads_.original(pipe, buffer, size, count)) {
                 onRead({.data = std::string(static_cast<const char*>(buffer), *count)});
                 return TRUE;
               }
               const DWORD error = GetLastError();
               onRead({{}, error});
               SetLastError(error);
               return FALSE;
             }) {}

}  // namespace tallow::test
