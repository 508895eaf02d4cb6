#include <windows.h>

#include "entry/application.hpp"
#include "entry/records.hpp"
#include "pipe/wide_name.hpp"

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, void* reserved) {
  using tallow::entry::application;
  if (reason == DLL_PROCESS_ATTACH) return application().start(module) ? TRUE : FALSE;
  // At the end of a process (reserved is not null) everything is left to the system: the other
  // threads are gone and may have left anything half done. The fallback file stays.
  if (reason == DLL_PROCESS_DETACH && reserved == nullptr) {
    tallow::entry::destroyAllModules();
    tallow::pipe::releaseConverter();
    application().end();
  }
  return TRUE;
}
