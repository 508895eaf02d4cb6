// The owner of an unbuffered file stream of the run-time library.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace tallow::fallback {

// May be empty. Every call but open, close, systemError and seekOrClose needs an open stream.
class FileStream {
 public:
  FileStream() = default;

  // Opens a file that no other process can then open for writing. Empty on failure. What is written
  // goes to the system at once, without a copy: a record that was written survives the process.
  static FileStream open(const std::string& name, const char* mode);

  // The system's error number of the latest failed call, including open. A call that fails without
  // a number (such as a short read) gets one that describes the failure, never an older one.
  unsigned long systemError() const noexcept { return systemError_; }

  explicit operator bool() const noexcept { return stream_ != nullptr; }
  void close() noexcept { stream_.reset(); }

  // Positions are bytes from the start.
  std::int64_t tell() noexcept;                     // -1 on failure
  std::uint64_t tellOrRaise();                      // raises kFallbackTellFailed
  void seekOrRaise(std::uint64_t offset);           // raises kFallbackSeekFailed
  bool seekOrClose(std::uint64_t offset) noexcept;  // false if there is no stream, then or now
  void seekToEnd() noexcept;                        // a failure is ignored

  // Number of bytes moved.
  std::size_t read(void* data, std::size_t size) noexcept;
  std::size_t write(const void* data, std::size_t size) noexcept;
  bool flush() noexcept;

 private:
  bool seek(std::uint64_t offset) noexcept;

  struct Closer {
    void operator()(std::FILE* stream) const noexcept { std::fclose(stream); }
  };
  std::unique_ptr<std::FILE, Closer> stream_;
  unsigned long systemError_ = 0;
};

}  // namespace tallow::fallback
