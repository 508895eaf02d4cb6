// The thread functions that the statically linked run-time library and ICU call, in place of those
// of the compiler's own thread library. That one takes a thread-local slot, memory and kernel
// objects at the first exception after each load and never gives them back, and a process has about
// a thousand such slots. This one takes no memory and can give back all that it takes.
//
// The module serves a single thread, so hardly ever does one thread wait for another here: waiting
// is yielding.

#include "entry/thread_layer.hpp"

#include <pthread.h>
#include <windows.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace {

// A mutex holds its owner's thread id in the low half and how often it is locked in the high half.
// What is not above 0 is free: that covers the library's static initialisers. Every mutex can be
// locked again by its owner, as some must.
constexpr intptr_t kLockedOnce = intptr_t{1} << 32;
constexpr intptr_t kFree = 0;

intptr_t ownerOf(intptr_t mutex) noexcept {
  return mutex & 0xFFFFFFFF;
}

// Values per thread: a slot of Windows with the function that frees a thread's value. Windows calls
// it when a thread ends and, for all threads, when the slot is freed.
constexpr std::size_t kMostKeys = 16;
constinit DWORD keys[kMostKeys] = {};
constinit std::atomic<std::size_t> keyCount = 0;

}  // namespace

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

int pthread_key_create(pthread_key_t* key, void (*freeValue)(void*)) {
  const std::size_t index = keyCount.fetch_add(1);
  if (index >= kMostKeys) {
    keyCount = kMostKeys;
    return EAGAIN;
  }
  keys[index] = FlsAlloc(freeValue);
  *key = keys[index];
  return keys[index] == FLS_OUT_OF_INDEXES ? EAGAIN : 0;
}

int pthread_key_delete(pthread_key_t key) {
  for (DWORD& known : keys) {
    if (known == key) known = FLS_OUT_OF_INDEXES;
  }
  return FlsFree(key) != FALSE ? 0 : EINVAL;
}

void* pthread_getspecific(pthread_key_t key) {
  // Windows clears the error number here, which somebody up the stack may be about to report.
  const DWORD error = GetLastError();
  void* const value = FlsGetValue(key);
  SetLastError(error);
  return value;
}

int pthread_setspecific(pthread_key_t key, const void* value) {
  const DWORD error = GetLastError();
  const BOOL done = FlsSetValue(key, const_cast<void*>(value));
  SetLastError(error);
  return done != FALSE ? 0 : ENOMEM;
}

}  // extern "C"

void tallow::entry::releaseThreadLayer() noexcept {
  for (std::size_t index = 0; index < keyCount; ++index) {
    if (keys[index] != FLS_OUT_OF_INDEXES) FlsFree(keys[index]);
  }
  keyCount = 0;
}
