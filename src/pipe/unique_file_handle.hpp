// The owner of an operating-system handle of a file or a pipe.
#pragma once

#include <windows.h>

#include <utility>

namespace tallow::pipe {

// Its "none" is INVALID_HANDLE_VALUE, as the calls that open files and pipes return it.
class UniqueFileHandle {
 public:
  UniqueFileHandle() = default;
  explicit UniqueFileHandle(HANDLE handle) noexcept : handle_(handle) {}
  ~UniqueFileHandle() { reset(); }
  UniqueFileHandle(UniqueFileHandle&& other) noexcept
      : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}
  UniqueFileHandle& operator=(UniqueFileHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }

  explicit operator bool() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const noexcept { return handle_; }

  void reset() noexcept {
    if (*this) CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE));
  }

 private:
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

}  // namespace tallow::pipe
