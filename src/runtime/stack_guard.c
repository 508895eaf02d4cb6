// What code with stack protection and checked copies (_FORTIFY_SOURCE) calls, in place of the
// compiler's libssp. While it is loaded, libssp asks the system's cryptography for a random number,
// and when it finds an overrun it writes to a terminal. The module has no other use for the imports
// that both need.

#include <stdint.h>
#include <windows.h>
// It needs windows.h before it.
#include <intrin.h>

// The compiler compares this value with its copy between a function's arrays and return address.
uintptr_t __stack_chk_guard = 0x00002B992DDFA232;

static uint64_t mixed(uint64_t value) {
  value = (value ^ (value >> 31)) * 0x7FB5D329728EA185;
  value = (value ^ (value >> 27)) * 0x81DADEF4BC2DD44D;
  return value ^ (value >> 33);
}

// Runs before every other constructor. It has no protection itself, because it changes the value.
__attribute__((constructor(101), no_stack_protector)) static void chooseGuard(void) {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  uint64_t seed = mixed(((uint64_t)time.dwHighDateTime << 32) | time.dwLowDateTime);
  seed = mixed(seed ^ __rdtsc());
  seed = mixed(seed ^ ((uint64_t)GetCurrentProcessId() << 32) ^ GetCurrentThreadId());
  seed = mixed(seed ^ (uintptr_t)&time);               // where the stack lies
  seed = mixed(seed ^ (uintptr_t)&__stack_chk_guard);  // and the program
  // The first byte in memory is zero: a text that overruns its array ends there.
  __stack_chk_guard = seed & ~(uintptr_t)0xFF;
}

// Ends the process at once, as the system's own compiler does: on a damaged stack no handler may
// run.
__attribute__((noreturn)) static void failFast(unsigned int reason) {
  __asm__ volatile("int $0x29" : : "c"(reason));
  __builtin_unreachable();
}

__attribute__((noreturn)) void __stack_chk_fail(void) {
  failFast(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE);
}

__attribute__((noreturn)) void __chk_fail(void) {
  failFast(FAST_FAIL_RANGE_CHECK_FAILURE);
}
