#include "runtime/exception_runtime.hpp"

#include <windows.h>

#include <cxxabi.h>
#include <unwind.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>

// A thread's exceptions in flight, in the layout of the compiler's ABI.
struct __cxxabiv1::__cxa_eh_globals {
  void* caughtExceptions;
  unsigned int uncaughtExceptions;
};

namespace {

using Globals = __cxxabiv1::__cxa_eh_globals;

// The header that the ABI puts before each exception object; only its size matters here.
struct ExceptionHeader {
  int referenceCount;
  struct {
    void* typeAndHandlers[4];
    void* next;
    int handlerCount;
    int handlerSwitchValue;
    void* tablesAndPointers[4];
    _Unwind_Exception unwindHeader;
  } exception;
};
static_assert(sizeof(ExceptionHeader) == 0xa0, "this compiler's exceptions have another header");

// Room for exceptions that are raised when memory has run out: for a failure and the failures of
// its report, both in the loading thread and in another thread that is being refused.
struct alignas(16) Reserve {
  std::byte bytes[512];
};
constinit std::array<Reserve, 8> reserves = {};
constinit std::array<std::atomic<bool>, reserves.size()> taken = {};

void* takeReserve(std::size_t size) noexcept {
  for (std::size_t i = 0; i < reserves.size() && size <= sizeof(Reserve); ++i) {
    if (!taken[i].exchange(true)) return reserves[i].bytes;
  }
  std::terminate();
}

void* allocate(std::size_t size) noexcept {
  void* memory = std::malloc(size);
  if (memory == nullptr) memory = takeReserve(size);
  return std::memset(memory, 0, size);
}

void release(void* memory) noexcept {
  for (std::size_t i = 0; i < reserves.size(); ++i) {
    if (memory == reserves[i].bytes) {
      taken[i] = false;
      return;
    }
  }
  std::free(memory);
}

constinit DWORD loadingThread = 0;
constinit Globals ofLoadingThread = {};
// Shared by all threads for which there is no memory; such threads are only ever refused.
constinit Globals ofAnyThread = {};
constinit DWORD slot = FLS_OUT_OF_INDEXES;

void WINAPI freeGlobals(void* globals) {
  std::free(globals);
}

Globals* globalsOfOtherThread() noexcept {
  if (slot == FLS_OUT_OF_INDEXES) return &ofAnyThread;
  if (void* known = FlsGetValue(slot)) return static_cast<Globals*>(known);
  auto* made = static_cast<Globals*>(std::calloc(1, sizeof(Globals)));
  if (made == nullptr) return &ofAnyThread;
  if (FlsSetValue(slot, made)) return made;
  std::free(made);
  return &ofAnyThread;
}

}  // namespace

namespace __cxxabiv1 {

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept {
  const bool loading = loadingThread == 0 || GetCurrentThreadId() == loadingThread;
  return loading ? &ofLoadingThread : globalsOfOtherThread();
}

extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept {
  return __cxa_get_globals();
}

extern "C" void* __cxa_allocate_exception(std::size_t size) noexcept {
  return static_cast<std::byte*>(allocate(sizeof(ExceptionHeader) + size)) +
         sizeof(ExceptionHeader);
}

extern "C" void __cxa_free_exception(void* exception) noexcept {
  release(static_cast<std::byte*>(exception) - sizeof(ExceptionHeader));
}

extern "C" __cxa_dependent_exception* __cxa_allocate_dependent_exception() noexcept {
  // It consists of its header alone.
  return static_cast<__cxa_dependent_exception*>(allocate(sizeof(ExceptionHeader)));
}

extern "C" void __cxa_free_dependent_exception(__cxa_dependent_exception* exception) noexcept {
  release(exception);
}

}  // namespace __cxxabiv1

namespace tallow::runtime {

void startExceptionRuntime() noexcept {
  loadingThread = GetCurrentThreadId();
  slot = FlsAlloc(freeGlobals);
}

void endExceptionRuntime() noexcept {
  if (slot != FLS_OUT_OF_INDEXES) FlsFree(slot);
  slot = FLS_OUT_OF_INDEXES;
}

}  // namespace tallow::runtime
