// Loads the module under a thread locale and runs one request. So a test can see, in its own
// folder, which language library the module finds there and what it does if there is none.
//
//   load_module LOCALE [INIT]
//
// LOCALE is a locale id (0x0407), or 0 for the thread's own. With INIT, the module is initialised
// with that string and receives a Write, which it refuses with a line in its log. The environment
// variable MODULE names the module if it is not tallowin.dll. Prints "box: TEXT" for a message box
// that comes up meanwhile, "library: FILE" for the language library that is mapped, "code page: N"
// and "ID answers CODE: NAME". The exit status is 1 when the module cannot be loaded.
#include <tallow/tallow.h>
#include <windows.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>

#include "support/import_hook.hpp"

namespace {

BOOL CALLBACK printText(HWND window, LPARAM) {
  std::array<char, 16> windowClass{};
  GetClassNameA(window, windowClass.data(), static_cast<int>(windowClass.size()));
  std::array<char, 1024> text{};
  GetWindowTextA(window, text.data(), static_cast<int>(text.size()));
  if (_stricmp(windowClass.data(), "Static") == 0 && text[0] != '\0') {
    std::printf("box: %s\n", text.data());
    std::fflush(stdout);
  }
  return TRUE;
}

LRESULT CALLBACK onWindowEvent(int code, WPARAM window, LPARAM data) {
  if (code == HCBT_ACTIVATE) EnumChildWindows(reinterpret_cast<HWND>(window), printText, 0);
  return CallNextHookEx(nullptr, code, window, data);
}

using LoadFunction = HMODULE(LPCWSTR, HANDLE, DWORD);
std::optional<tallow::test::Hook<struct LoadTag, LoadFunction>> load;

// Prints what the module maps from now on.
void watchLibraries(HMODULE module) {
  if (!tallow::test::importsFunction(module, "LoadStringA") ||
      !tallow::test::importsFunction(module, "timeBeginPeriod")) {
    return;
  }
  load.emplace(module, "LoadLibraryExW", [](LPCWSTR path, HANDLE file, DWORD flags) {
    const HMODULE library = load->original(path, file, flags);
    const wchar_t* separator = std::wcsrchr(path, L'\\');
    if (library != nullptr) {
      std::printf("library: %ls\n", separator != nullptr ? separator + 1 : path);
    }
    return library;
  });
}

TallowPIDMMain entryOf(HMODULE module) {
  return reinterpret_cast<TallowPIDMMain>(
      reinterpret_cast<void*>(GetProcAddress(module, "PIDMMain")));
}

void printIdentification(TallowPIDMMain entry) {
  TallowRequestBlock request{};
  TallowIdBlock id{};
  request.requestCode = pmiPIDMOptID;
  entry(&request, &id);
  std::printf("ID answers %u: %s\n", request.returnCode, id.name);
}

int refuseToWrite(TallowPIDMMain entry, char* initString) {
  TallowRequestBlock request{};
  TallowInitBlock init{};
  init.interfaceLevel1 = TALLOW_INTERFACE_LEVEL_1;
  init.interfaceLevel2 = TALLOW_INTERFACE_LEVEL_2;
  init.initString = initString;
  init.initStringLength = static_cast<std::uint32_t>(std::strlen(initString));
  request.requestCode = pmiPIDMOptInit;
  entry(&request, &init);
  if (request.returnCode != pmrcSuccess) return 1;
  request.requestCode = pmiPIDMOptWrite;
  TallowReadBlock write{};
  entry(&request, &write);
  return request.returnCode == pmrcNotSupported ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) return 2;
  const LCID locale = std::strtoul(argv[1], nullptr, 0);
  if (locale != 0 && !SetThreadLocale(locale)) return 2;
  SetWindowsHookExA(WH_CBT, onWindowEvent, nullptr, GetCurrentThreadId());
  const tallow::test::LoadWatch watch(watchLibraries);
  const wchar_t* path = _wgetenv(L"MODULE");
  const HMODULE module = LoadLibraryW(path != nullptr ? path : L"tallowin.dll");
  if (module == nullptr) return 1;
  const TallowPIDMMain entry = entryOf(module);
  if (entry == nullptr) return 1;
  std::printf("code page: %u\n", GetACP());
  printIdentification(entry);
  return argc == 3 ? refuseToWrite(entry, argv[2]) : 0;
}
