// The address at which Windows enters the library: it wraps the run-time library's own entry and
// gives back, at unload, what the statically linked run-time library would keep for ever. A host
// may load and unload the module as often as it likes.

#include <windows.h>

#include "entry/thread_layer.hpp"

extern "C" BOOL WINAPI DllMainCRTStartup(HINSTANCE module, DWORD reason, void* reserved);

namespace __gnu_cxx {
// The run-time library's own: gives back its reserve for exceptions thrown without memory.
void __freeres();
}  // namespace __gnu_cxx

extern "C" BOOL WINAPI enterLibrary(HINSTANCE module, DWORD reason, void* reserved) {
  const BOOL done = DllMainCRTStartup(module, reason, reserved);
  const bool unloaded = reason == DLL_PROCESS_DETACH && reserved == nullptr;
  const bool neverLoaded = reason == DLL_PROCESS_ATTACH && done == FALSE;
  // At the end of a process (reserved is not null) nothing is touched: the system takes it all.
  if (unloaded || neverLoaded) {
    tallow::entry::releaseThreadLayer();
    __gnu_cxx::__freeres();
  }
  return done;
}
