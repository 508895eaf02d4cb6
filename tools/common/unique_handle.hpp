// Owners for Windows handles, one for each value that means "none".
#pragma once

#include <windows.h>

#include <utility>

#include "pipe/unique_file_handle.hpp"

namespace tallow::tools {

using pipe::UniqueFileHandle;  // of files and pipes, whose "none" is INVALID_HANDLE_VALUE

// Owns a handle whose "none" is null: threads, processes, events.
class UniqueHandle {
 public:
  UniqueHandle() = default;
  explicit UniqueHandle(HANDLE handle) : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~UniqueHandle() {
    if (handle_ != nullptr) CloseHandle(handle_);
  }

  HANDLE get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != nullptr; }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace tallow::tools
