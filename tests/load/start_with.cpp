// start_with LIBRARY PROGRAM ARGUMENTS...: runs a program with a library loaded into it before its
// first instruction, and ends with its exit status.
#include <windows.h>

#include <bit>
#include <cstdio>
#include <cwchar>
#include <string>

namespace {

constexpr UINT kFailed = 126;

// The command line after the first `count` words.
const wchar_t* behindWords(const wchar_t* line, int count) {
  for (; count > 0; --count) {
    bool quoted = false;
    for (; *line != L'\0' && (quoted || *line != L' '); ++line) quoted ^= *line == L'"';
    while (*line == L' ') ++line;
  }
  return line;
}

bool loadInto(HANDLE process, const std::wstring& library) {
  const std::size_t bytes = (library.size() + 1) * sizeof(wchar_t);
  void* name = VirtualAllocEx(process, nullptr, bytes, MEM_COMMIT, PAGE_READWRITE);
  if (name == nullptr || !WriteProcessMemory(process, name, library.c_str(), bytes, nullptr)) {
    return false;
  }
  // The same address in every process.
  const auto load = std::bit_cast<LPTHREAD_START_ROUTINE>(
      GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryW"));
  HANDLE thread = CreateRemoteThread(process, nullptr, 0, load, name, 0, nullptr);
  if (thread == nullptr) return false;
  WaitForSingleObject(thread, INFINITE);
  DWORD loaded = 0;
  GetExitCodeThread(thread, &loaded);
  CloseHandle(thread);
  return loaded != 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) return kFailed;
  std::wstring line = behindWords(GetCommandLineW(), 2);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr,
                      nullptr, &startup, &process)) {
    std::fwprintf(stderr, L"start_with: cannot start %ls\n", line.c_str());
    return kFailed;
  }
  if (!loadInto(process.hProcess, argv[1])) {
    std::fwprintf(stderr, L"start_with: cannot load %ls\n", argv[1]);
    TerminateProcess(process.hProcess, kFailed);
    return kFailed;
  }
  ResumeThread(process.hThread);
  WaitForSingleObject(process.hProcess, INFINITE);
  DWORD status = kFailed;
  GetExitCodeProcess(process.hProcess, &status);
  return static_cast<int>(status);
}
