// The module's application object: what happens when the library is loaded and unloaded.
#pragma once

#include <windows.h>

#include <string>

namespace tallow::entry {

// There is one, in static storage. It is never destroyed, so that a process that ends without
// unloading the module touches nothing of it.
class CTallowinApp {
 public:
  // Installs the out-of-memory handler, loads the language library, notes the calling thread and
  // sets up the log. If it returns false, the library must not load.
  bool start(HMODULE module) noexcept;

  // Frees what start took.
  void end() noexcept;

  // The only thread that may send requests: the one that loaded the library.
  bool isLoadingThread() const noexcept { return GetCurrentThreadId() == threadId_; }

  HMODULE module() const noexcept { return module_; }

  // The path of the module's file, in UTF-16 because the code page may lack its folder's
  // characters. Empty if the system does not give it.
  std::wstring path() const;

 private:
  HMODULE module_ = nullptr;
  DWORD threadId_ = 0;
};

CTallowinApp& application() noexcept;

}  // namespace tallow::entry
