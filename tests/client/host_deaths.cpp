// Loaded into a host from outside. Counts its steps, which are its requests to the module and its
// calls that change a file, and can end the process before one of them. It patches the program's
// import table, so that the program under test is the one that a person starts.
//
// In the environment: TALLOW_DIE_BEFORE, the number of the step before which the process ends; and
// TALLOW_STEPS, a file that gets the names of all steps, one a line, at the end.
#include <windows.h>

#include <io.h>

#include <tallow/tallow.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/import_hook.hpp"

namespace {

constexpr UINT kKilled = 137;

unsigned long steps = 0;
unsigned long dieBefore = 0;
std::string names;
std::string reportPath;
TallowPIDMMain realPidmMain = nullptr;

std::string environment(const char* name) {
  std::array<char, 1024> value{};
  GetEnvironmentVariableA(name, value.data(), static_cast<DWORD>(value.size()));
  return value.data();
}

void step(const char* name) {
  if (++steps == dieBefore) TerminateProcess(GetCurrentProcess(), kKilled);
  names += name;
  names += '\n';
}

// The name of a function as a template argument.
template <std::size_t size>
struct Name {
  char text[size];
  constexpr Name(const char (&name)[size]) { std::copy_n(name, size, text); }
};

template <Name name, auto slot>
struct Counted;

// Stands in for a function of any signature: counts the call and then makes it.
template <Name name, typename Result, typename... Arguments, Result (**slot)(Arguments...)>
struct Counted<name, slot> {
  static Result call(Arguments... arguments) {
    step(name.text);
    return (*slot)(arguments...);
  }
};

#define COUNTED_FUNCTIONS(X) \
  X(CreateFileW)             \
  X(WriteFile)               \
  X(FlushFileBuffers)        \
  X(SetEndOfFile)            \
  X(MoveFileExA)             \
  X(MoveFileExW)             \
  X(DeleteFileA) X(DeleteFileW) X(fopen) X(fwrite) X(fflush) X(fclose) X(_commit) X(_chsize)

#define DECLARE_REAL(name) decltype(&(name)) real_##name = nullptr;
COUNTED_FUNCTIONS(DECLARE_REAL)
#undef DECLARE_REAL

void pidmMain(TallowRequestBlock* request, void* parameters) {
  step(request->requestCode == pmiPIDMOptRead ? "Read" : "request");
  realPidmMain(request, parameters);
}

decltype(&GetProcAddress) realGetProcAddress = nullptr;

FARPROC WINAPI getProcAddress(HMODULE module, LPCSTR name) {
  const FARPROC found = realGetProcAddress(module, name);
  const bool isNumber = reinterpret_cast<std::uintptr_t>(name) < 0x10000;
  if (found == nullptr || isNumber || std::strcmp(name, "PIDMMain") != 0) return found;
  realPidmMain = std::bit_cast<TallowPIDMMain>(found);
  return std::bit_cast<FARPROC>(&pidmMain);
}

// A function that the host does not import is left alone.
template <typename Function>
void replace(const char* name, Function* replacement, Function** real) {
  const HMODULE program = GetModuleHandleW(nullptr);
  if (!tallow::test::importsFunction(program, name)) return;
  *real = reinterpret_cast<Function*>(
      tallow::test::replaceImport(program, name, reinterpret_cast<void*>(replacement)));
}

void patchProgram() {
#define REPLACE(name) replace(#name, &Counted<#name, &real_##name>::call, &real_##name);
  COUNTED_FUNCTIONS(REPLACE)
#undef REPLACE
  replace("GetProcAddress", &getProcAddress, &realGetProcAddress);
}

void writeReport() {
  if (std::FILE* file = std::fopen(reportPath.c_str(), "wb")) {
    std::fputs(names.c_str(), file);
    std::fclose(file);
  }
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD reason, void* /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    dieBefore = std::strtoul(environment("TALLOW_DIE_BEFORE").c_str(), nullptr, 10);
    reportPath = environment("TALLOW_STEPS");
    patchProgram();
  }
  if (reason == DLL_PROCESS_DETACH && !reportPath.empty()) writeReport();
  return TRUE;
}
