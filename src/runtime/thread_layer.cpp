// The thread functions that ICU and the statically linked run-time library call, in place of those
// of the compiler's own thread library. That library takes a thread-local slot, memory and kernel
// objects when each is first used after a load. It ends the process if it cannot get them, and
// never gives them back; a process has only about a thousand such slots. The functions here take
// nothing.
//
// The module serves a single thread, so one thread hardly ever waits for another here. To wait is
// simply to yield.

#include <pthread.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>

namespace {

// A mutex holds its owner's thread id in the low half and its lock count in the high half. A value
// of 0 or less means free, which covers the library's static initialisers. The owner can lock any
// mutex again; some must allow this.
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

// A wait may end without a signal: each caller checks its condition again.
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

// A thread-local variable exists only once. That is enough: all threads but one are refused before
// they could use it.
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
