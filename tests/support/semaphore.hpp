// A binary semaphore of the system: waits in the one of the compiler's library now and then never
// end.
#pragma once

#include <windows.h>

namespace tallow::test {

// Not taken at first.
class BinarySemaphore {
 public:
  BinarySemaphore() : event_(CreateEventA(nullptr, FALSE, FALSE, nullptr)) {}
  ~BinarySemaphore() { CloseHandle(event_); }
  BinarySemaphore(const BinarySemaphore&) = delete;
  BinarySemaphore& operator=(const BinarySemaphore&) = delete;

  void release() { SetEvent(event_); }
  void acquire() { WaitForSingleObject(event_, INFINITE); }

 private:
  HANDLE event_;
};

}  // namespace tallow::test
