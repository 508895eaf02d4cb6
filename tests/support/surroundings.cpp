#include "support/surroundings.hpp"

#include <windows.h>

#include <psapi.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace tallow::test {
namespace {

bool setVariable(const std::string& name, const std::optional<std::string>& value) noexcept {
  // An empty value removes the variable, both in the run-time library and in the system.
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
  // The name may be left from a crashed process with the same id.
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

void ScratchDirectory::removeFiles() const {
  WIN32_FIND_DATAA found = {};
  const HANDLE search = FindFirstFileA(file("*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    DeleteFileA(file(found.cFileName).c_str());
  } while (FindNextFileA(search, &found));
  FindClose(search);
}

ScopedEnvironment::ScopedEnvironment(std::string name, const std::optional<std::string>& value)
    : name_(std::move(name)) {
  if (const char* before = std::getenv(name_.c_str())) before_ = before;
  if (!setVariable(name_, value)) throw std::runtime_error("cannot set " + name_);
}

ScopedEnvironment::~ScopedEnvironment() {
  setVariable(name_, before_);
}

std::optional<std::uint64_t> numberFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return std::strtoull(value, nullptr, 10);
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

// GetProcessHandleCount returns 0 under Wine, and to read the system's list of all handles ends
// Wine's server if a process begins or ends meanwhile. So this tries every number that a handle may
// have. A new handle always gets the lowest free number, so the numbers are close together.
std::size_t openHandles() {
  constexpr std::uintptr_t kStep = 4;
  constexpr int kLongestGap = 64;
  std::size_t count = 0;
  int gap = 0;
  for (std::uintptr_t number = kStep; gap < kLongestGap; number += kStep, ++gap) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags)) {
      ++count;
      gap = 0;
    }
  }
  return count;
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
