// The module's application object: what happens when the library is loaded and unloaded.
#pragma once

#include <windows.h>

#include <string>

namespace tallow::diag {

// There is one, in static storage that is never destroyed, so that the end of a process that did
// not unload the module touches nothing.
class CTallowinApp {
 public:
  // Installs the out-of-memory handler, loads the language library, notes the calling thread and
  // sets up the log. False: the library must not load.
  bool start(HMODULE module) noexcept;

  // Gives back what start took.
  void end() noexcept;

  // The only thread that may send requests: the one that loaded the library.
  bool isLoadingThread() const noexcept { return GetCurrentThreadId() == threadId_; }

  HMODULE module() const noexcept { return module_; }

  // The module's file, in UTF-16, since the code page may not have its folder's characters. Empty
  // when the system does not say it.
  std::wstring path() const;

 private:
  HMODULE module_ = nullptr;
  DWORD threadId_ = 0;
};

CTallowinApp& application() noexcept;

// The first word of the process's command line.
std::string hostProgramName();

}  // namespace tallow::diag
