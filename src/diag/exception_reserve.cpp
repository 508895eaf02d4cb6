#include "diag/exception_reserve.hpp"

#include <cstddef>

namespace {

constinit bool refuseOnce = false;

}  // namespace

// The linker sends every call of malloc in this library here (--wrap), the run-time library's own
// included: nothing else leads to the reserve while there is memory.
extern "C" void* __real_malloc(std::size_t size);
extern "C" void* __wrap_malloc(std::size_t size) {
  if (!refuseOnce) return __real_malloc(size);
  refuseOnce = false;
  return nullptr;
}

// Of the run-time library, which declares it in no header.
namespace __gnu_cxx {
void __freeres();
}

namespace tallow::diag {

void releaseExceptionReserve() noexcept {
  __gnu_cxx::__freeres();
}

void prepareExceptionReserve() noexcept {
  refuseOnce = true;
  try {
    throw 0;
  } catch (int) {
    refuseOnce = false;
  }
}

}  // namespace tallow::diag
