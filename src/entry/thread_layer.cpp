// The thread functions that ICU and the statically linked run-time library call, in place of those
// of the compiler's own thread library. That one takes a thread-local slot, memory and kernel
// objects at their first use after each load, ends the process if there are none, and never gives
// them back; a process has about a thousand such slots. This one takes nothing.
//
// The module serves a single thread, so hardly ever does one thread wait for another here: waiting
// is yielding.

#include <pthread.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>

namespace {

// A mutex holds its owner's thread id in the low half and how often it is locked in the high half.
// What is not above 0 is free: that covers the library's static initialisers. Every mutex can be
// locked again by its owner, as some must.
constexpr intptr_t kLockedOnce = intptr_t{1} << 32;
constexpr intptr_t kFree = 0;

intptr_t ownerOf(intptr_t mutex) noexcept {
  return mutex & 0xFFFFFFFF;
}

// How the compiler describes a variable that is thread-local in the source.
struct ThreadLocalVariable {
  std::size_t size;
  std::size_t alignment;
  void* address;
  const void* initialValue;  // null: zeros
};

// Room for the thread-local variables of ICU and the run-time library, which are two pointers.
alignas(16) constinit std::byte variables[64] = {};
constinit std::size_t variablesUsed = 0;

}  // namespace

// The library's declarations say what is const, and that the names are reserved for it.
// NOLINTBEGIN(readability-non-const-parameter, bugprone-reserved-identifier)
extern "C" {

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t*) {
  *mutex = kFree;
  return 0;
}

int pthread_mutex_destroy(pthread_mutex_t*) {
  return 0;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
  const std::atomic_ref<intptr_t> word(*mutex);
  const auto self = static_cast<intptr_t>(GetCurrentThreadId());
  for (;;) {
    intptr_t seen = word.load();
    if (seen > 0 && ownerOf(seen) == self) {
      word.store(seen + kLockedOnce);
      return 0;
    }
    if (seen <= 0 && word.compare_exchange_strong(seen, self + kLockedOnce)) return 0;
    SwitchToThread();
  }
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
  const std::atomic_ref<intptr_t> word(*mutex);
  const intptr_t left = word.load() - kLockedOnce;
  word.store(left >= kLockedOnce ? left : kFree);
  return 0;
}

// A wait that ends without a signal is allowed, and each caller looks at its condition again.
int pthread_cond_wait(pthread_cond_t*, pthread_mutex_t* mutex) {
  pthread_mutex_unlock(mutex);
  SwitchToThread();
  return pthread_mutex_lock(mutex);
}

int pthread_cond_signal(pthread_cond_t*) {
  return 0;
}

int pthread_cond_broadcast(pthread_cond_t*) {
  return 0;
}

int pthread_cond_destroy(pthread_cond_t*) {
  return 0;
}

int pthread_once(pthread_once_t* once, void (*function)()) {
  enum : pthread_once_t { kNotYet = PTHREAD_ONCE_INIT, kRunning, kDone };
  const std::atomic_ref<pthread_once_t> state(*once);
  for (;;) {
    pthread_once_t seen = kNotYet;
    if (state.compare_exchange_strong(seen, kRunning)) break;
    if (seen == kDone) return 0;
    SwitchToThread();
  }
  try {
    function();
  } catch (...) {
    state.store(kNotYet);
    throw;
  }
  state.store(kDone);
  return 0;
}

// Linked by parts of the run-time library that the module never reaches.
int pthread_key_create(pthread_key_t*, void (*)(void*)) {
  return EAGAIN;
}

int pthread_key_delete(pthread_key_t) {
  return EINVAL;
}

void* pthread_getspecific(pthread_key_t) {
  return nullptr;
}

int pthread_setspecific(pthread_key_t, const void*) {
  return EINVAL;
}

// Deliberate: a thread-local variable exists once, since all threads but one are refused before
// they could come near it.
void* __emutls_get_address(ThreadLocalVariable* variable) {
  if (variable->address == nullptr) {
    const std::size_t start =
        (variablesUsed + variable->alignment - 1) / variable->alignment * variable->alignment;
    if (start + variable->size > sizeof(variables)) std::terminate();
    variablesUsed = start + variable->size;
    variable->address = variables + start;
    if (variable->initialValue != nullptr) {
      std::memcpy(variable->address, variable->initialValue, variable->size);
    }
  }
  return variable->address;
}

}  // extern "C"
// NOLINTEND(readability-non-const-parameter, bugprone-reserved-identifier)
