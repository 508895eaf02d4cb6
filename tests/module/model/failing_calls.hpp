// Makes calls of the module to the stream of its fallback file and to the allocator fail as
// planned.
#pragma once

#include <windows.h>

#include <cerrno>
#include <cstdio>

#include "support/import_hook.hpp"

namespace tallow::test {

class FailingCalls {
 public:
  struct Plan {
    int streamCall = 0;  // the n-th after arming fails; 0: none
    int allocation = 0;  // the n-th after arming, or after the failed stream call, fails; 0: none
  };

  explicit FailingCalls(HMODULE module)
      : openLog_(module, "fopen",
                 [this](const char* name, const char* mode) {
                   std::FILE* const log = openLog_.original(name, mode);
                   if (log == file_) file_ = nullptr;  // which was closed
                   return log;
                 }),
        open_(module, "_fsopen",
              [this](const char* name, const char* mode, int share) {
                return file_ = open_.original(name, mode, share);
              }),
        read_(module, "fread",
              [this](void* bytes, std::size_t size, std::size_t items, std::FILE* stream) {
                return read_.original(bytes, size, fails(stream) ? items / 2 : items, stream);
              }),
        write_(module, "fwrite",
               [this](const void* bytes, std::size_t size, std::size_t items, std::FILE* stream) {
                 return write_.original(bytes, size, fails(stream) ? items / 2 : items, stream);
               }),
        flush_(module, "fflush",
               [this](std::FILE* stream) { return fails(stream) ? EOF : flush_.original(stream); }),
        setPosition_(module, "fsetpos",
                     [this](std::FILE* stream, const fpos_t* position) {
                       return fails(stream) ? -1 : setPosition_.original(stream, position);
                     }),
        getPosition_(module, "fgetpos",
                     [this](std::FILE* stream, fpos_t* position) {
                       return fails(stream) ? -1 : getPosition_.original(stream, position);
                     }),
        allocate_(module, "malloc", [this](std::size_t size) -> void* {
          return allocationFails() ? nullptr : allocate_.original(size);
        }) {}

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
  bool fails(std::FILE* stream) {
    if (!isArmed_ || stream != file_ || plan_.streamCall == 0 || --plan_.streamCall != 0) {
      return false;
    }
    errno = EIO;
    SetLastError(ERROR_CRC);
    return hasStruck_ = true;
  }
  bool allocationFails() {
    if (!isArmed_ || plan_.streamCall != 0 || plan_.allocation == 0 || --plan_.allocation != 0) {
      return false;
    }
    errno = ENOMEM;
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return hasStruck_ = true;
  }

  Plan plan_;
  bool isArmed_ = false;
  bool hasStruck_ = false;
  std::FILE* file_ = nullptr;
  Hook<struct LogOpenTag, std::FILE*(const char*, const char*)> openLog_;
  Hook<struct OpenTag, std::FILE*(const char*, const char*, int)> open_;
  Hook<struct FreadTag, std::size_t(void*, std::size_t, std::size_t, std::FILE*)> read_;
  Hook<struct WriteTag, std::size_t(const void*, std::size_t, std::size_t, std::FILE*)> write_;
  Hook<struct FlushTag, int(std::FILE*)> flush_;
  Hook<struct SetPositionTag, int(std::FILE*, const fpos_t*)> setPosition_;
  Hook<struct GetPositionTag, int(std::FILE*, fpos_t*)> getPosition_;
  Hook<struct MallocTag, void*(std::size_t)> allocate_;
};

}  // namespace tallow::test
