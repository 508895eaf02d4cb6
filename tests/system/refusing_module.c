/* A library that refuses to start, as the module does without a language library. */
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE library, DWORD reason, LPVOID reserved) {
  (void)library;
  (void)reserved;
  return reason != DLL_PROCESS_ATTACH;
}
