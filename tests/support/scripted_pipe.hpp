// A script in place of the module's pipe.
#pragma once

#include <windows.h>

#include <functional>
#include <utility>

#include "support/import_hook.hpp"
#include "support/pipe_script.hpp"

namespace tallow::test {

// Replaces the module's ReadFile and Sleep: reads play the script, and pauses take no time.
class ScriptedPipe {
 public:
  // `onRead`, if given, sees what each read got.
  ScriptedPipe(HMODULE module, PipeScript& script,
               std::function<void(const PipeScript::Outcome&)> onRead = nullptr)
      : read_(module, "ReadFile",
              [&script, onRead = std::move(onRead)](HANDLE, void* buffer, DWORD size, DWORD* count,
                                                    OVERLAPPED*) {
                const PipeScript::Outcome got = script.read(size);
                if (onRead) onRead(got);
                *count = static_cast<DWORD>(got.data.copy(static_cast<char*>(buffer), size));
                SetLastError(got.error);
                return got.error == 0 ? TRUE : FALSE;
              }),
        sleep_(module, "Sleep", [](DWORD) {}) {}

 private:
  Hook<struct ReadFileTag, BOOL(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*)> read_;
  Hook<struct SleepTag, void(DWORD)> sleep_;
};

}  // namespace tallow::test
