#include "support/surroundings.hpp"

#include <windows.h>

#include <psapi.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace tallow::test {
namespace {

// GetProcessHandleCount answers 0 under Wine, so handles are counted in the system's list.
constexpr ULONG kAllHandles = 64;

struct HandleEntry {
  void* object;
  ULONG_PTR process;
  ULONG_PTR handle;
  ULONG access;
  USHORT creator;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};

struct HandleList {
  ULONG_PTR count;
  ULONG_PTR reserved;
  HandleEntry entries[1];
};

using QuerySystemInformation = LONG(NTAPI*)(ULONG what, void* answer, ULONG size, ULONG* needed);

bool setVariable(const std::string& name, const std::optional<std::string>& value) noexcept {
  // An empty value removes the variable in the run-time library, as in the system.
  return _putenv_s(name.c_str(), value ? value->c_str() : "") == 0;
}

template <typename Visit>
void visitHeapBlocks(Visit visit) {
  std::array<HANDLE, 64> heaps{};
  const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
  for (DWORD i = 0; i < count; ++i) {
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heaps[i], &entry)) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) visit(entry.cbData);
    }
  }
}

}  // namespace

std::string programDirectory() {
  std::array<char, MAX_PATH> path{};
  GetModuleFileNameA(nullptr, path.data(), static_cast<DWORD>(path.size()));
  const std::string_view whole = path.data();
  return std::string(whole.substr(0, whole.rfind('\\')));
}

std::string uniqueName(std::string_view stem) {
  static std::atomic<unsigned> counter{0};
  return std::string(stem) + std::to_string(GetCurrentProcessId()) + '-' +
         std::to_string(++counter);
}

std::string uniquePipeName() {
  return R"(\\.\pipe\)" + uniqueName("tallow-test");
}

ScratchDirectory::ScratchDirectory() {
  std::array<char, MAX_PATH> parent{};
  GetTempPathA(static_cast<DWORD>(parent.size()), parent.data());
  // A name may be left from a process that crashed with the same id.
  do {
    path_ = parent.data() + uniqueName("tallow");
    if (CreateDirectoryA(path_.c_str(), nullptr)) return;
  } while (GetLastError() == ERROR_ALREADY_EXISTS);
  throw std::runtime_error("cannot create " + path_);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ScratchDirectory::file(std::string_view name) const {
  return path_ + '\\' + std::string(name);
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
  if (const char* before = std::getenv(name_.c_str())) before_ = before;
  if (!setVariable(name_, value)) throw std::runtime_error("cannot set " + name_);
}

ScopedEnvironment::~ScopedEnvironment() {
  setVariable(name_, before_);
}

ScopedCurrentDirectory::ScopedCurrentDirectory(const std::string& path) {
  std::array<char, MAX_PATH> before{};
  GetCurrentDirectoryA(static_cast<DWORD>(before.size()), before.data());
  before_ = before.data();
  if (!SetCurrentDirectoryA(path.c_str())) throw std::runtime_error("cannot go to " + path);
}

ScopedCurrentDirectory::~ScopedCurrentDirectory() {
  SetCurrentDirectoryA(before_.c_str());
}

std::size_t openHandles() {
  const auto query = reinterpret_cast<QuerySystemInformation>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleA("ntdll.dll"), "NtQuerySystemInformation")));
  constexpr LONG kTooSmall = static_cast<LONG>(0xc0000004);
  std::vector<std::size_t> answer(1 << 16);
  ULONG needed = 0;
  LONG status = 0;
  while ((status = query(kAllHandles, answer.data(),
                         static_cast<ULONG>(answer.size() * sizeof(answer[0])), &needed)) ==
         kTooSmall) {
    answer.resize(answer.size() * 2);
  }
  if (status != 0) throw std::runtime_error("the system does not list handles");
  const auto* list = reinterpret_cast<const HandleList*>(answer.data());
  const HandleEntry* first = list->entries;
  return static_cast<std::size_t>(std::count_if(
      first, first + list->count,
      [](const HandleEntry& entry) { return entry.process == GetCurrentProcessId(); }));
}

std::size_t heapBlocks() {
  std::size_t blocks = 0;
  visitHeapBlocks([&](std::size_t) { ++blocks; });
  return blocks;
}

std::size_t heapBytes() {
  std::size_t bytes = 0;
  visitHeapBlocks([&](std::size_t size) { bytes += size; });
  return bytes;
}

std::size_t workingSet() {
  PROCESS_MEMORY_COUNTERS counters{};
  if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters))) {
    throw std::runtime_error("the system does not tell the working set");
  }
  return counters.WorkingSetSize;
}

}  // namespace tallow::test
