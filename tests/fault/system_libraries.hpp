// The system libraries that the module needs.
#pragma once

#include <windows.h>

namespace tallow::test {

// Loads them and keeps them loaded, so that each load of the module is quick and what they hold is
// not counted as the module's.
inline void keepSystemLibraries() {
  for (const char* name : {"comdlg32.dll", "version.dll", "winmm.dll", "advapi32.dll"}) {
    LoadLibraryA(name);
  }
}

}  // namespace tallow::test
