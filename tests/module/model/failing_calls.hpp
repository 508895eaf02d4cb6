// Makes calls of the module to the stream of its fallback file and to the allocator fail as
// planned.
#pragma once

#include <windows.h>

#include "support/stream_faults.hpp"
#include "support/system_faults.hpp"

namespace tallow::test {

class FailingCalls {
 public:
  struct Plan {
    int streamCall = 0;  // the n-th after arming fails; 0: none
    int allocation = 0;  // the n-th after arming, or after the failed stream call, fails; 0: none
  };

  explicit FailingCalls(HMODULE module)
      : stream_(module, [this](StreamCall call) { return streamCallFails(call); }),
        allocations_(module, [this](std::size_t) { return allocationFails(); }) {
    stream_.systemError = ERROR_CRC;
  }

  void arm(Plan plan) {
    plan_ = plan;
    isArmed_ = true;
    hasStruck_ = false;
  }
  // True if a call has failed.
  bool disarm() {
    isArmed_ = false;
    return hasStruck_;
  }

 private:
  bool streamCallFails(StreamCall call) {
    const bool isCounted =
        call != StreamCall::kOpen && call != StreamCall::kClose && call != StreamCall::kRemove;
    if (!isArmed_ || !isCounted || plan_.streamCall == 0 || --plan_.streamCall != 0) return false;
    return hasStruck_ = true;
  }
  bool allocationFails() {
    if (!isArmed_ || plan_.streamCall != 0 || plan_.allocation == 0 || --plan_.allocation != 0) {
      return false;
    }
    return hasStruck_ = true;
  }

  Plan plan_;
  bool isArmed_ = false;
  bool hasStruck_ = false;
  StreamFaults stream_;
  AllocationFaults allocations_;
};

}  // namespace tallow::test
