// Loads the module under a thread locale and runs one request, so that a test can see from a folder
// of its own which language library the module finds there, and what it does when there is none.
//
//   load_module LOCALE [INIT]
//
// LOCALE is a locale id (0x0407), or 0 for the one that the thread has. With INIT, the module is
// initialised with that string and asked to write, which it refuses with a line in its log.
// Prints "box: TEXT" for a message box that comes up meanwhile, "library: FILE" for the language
// library and "code page: N". The exit status is 1 when the module cannot be loaded.
#include <tallow/tallow.h>
#include <windows.h>

#include <psapi.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

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

void printLanguageLibraries() {
  std::array<HMODULE, 256> modules{};
  DWORD bytes = 0;
  K32EnumProcessModules(GetCurrentProcess(), modules.data(), sizeof modules, &bytes);
  for (std::size_t i = 0; i < bytes / sizeof(HMODULE) && i < modules.size(); ++i) {
    std::array<char, MAX_PATH> path{};
    K32GetModuleBaseNameA(GetCurrentProcess(), modules[i], path.data(), MAX_PATH);
    const std::string_view name = path.data();
    if (name.starts_with("tallowin") && name != "tallowin.dll") {
      std::printf("library: %s\n", path.data());
    }
  }
}

int refuseToWrite(HMODULE module, char* initString) {
  const auto entry =
      reinterpret_cast<TallowPIDMMain>(reinterpret_cast<void*>(GetProcAddress(module, "PIDMMain")));
  if (entry == nullptr) return 1;
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
  const HMODULE module = LoadLibraryA("tallowin.dll");
  if (module == nullptr) return 1;
  printLanguageLibraries();
  std::printf("code page: %u\n", GetACP());
  return argc == 3 ? refuseToWrite(module, argv[2]) : 0;
}
