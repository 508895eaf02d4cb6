// A semaphore for the threads of a test.
#pragma once

#include <windows.h>

namespace tallow::test {

// Begins at zero: the first acquire waits for a release. It uses a system event, because waits for
// the semaphore of the compiler's library sometimes never end.
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
