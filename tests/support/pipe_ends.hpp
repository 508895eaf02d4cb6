// The writer's ends of the pipes that the module reads.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace tallow::test {

// A writing end. All failures throw std::runtime_error with the system error number. If the pipe's
// buffer is full, a write waits for the reader; the buffer is twice the block size if the module
// made the pipe. So write from the test's own thread only what fits, and the rest from a
// WriterThread.
class PipeEnd {
 public:
  // Connects to a pipe that the module serves (it exists as soon as Open has answered).
  static PipeEnd connect(const std::string& name);
  // Makes the server end, to which the next Open of this name connects.
  static PipeEnd serve(const std::string& name, std::uint32_t bufferSize = 65536);

  PipeEnd(PipeEnd&& other) noexcept;
  PipeEnd& operator=(PipeEnd&&) = delete;
  ~PipeEnd() { close(); }

  // Server end only: waits until the reader has connected.
  void waitForReader();
  void write(std::string_view bytes);
  // Waits until the reader has taken everything.
  void flush();
  // Gives the reader what is in the buffer and then the end (error 109).
  void close();
  // Server end only: discards what is in the buffer; the reader gets error 233.
  void disconnect();

 private:
  explicit PipeEnd(HANDLE handle) : handle_(handle) {}
  HANDLE handle_;
};

// Runs `work` (writes, waits for events, closes) beside the test; the destructor waits for its end.
// An exception in it is a test failure.
class WriterThread {
 public:
  explicit WriterThread(std::function<void()> work);

 private:
  std::jthread thread_;
};

// Connects to the pipe `name`, writes `data` in chunks of `chunk` bytes and closes.
WriterThread writeAll(const std::string& name, std::string data, std::size_t chunk = 65536);

// `size` bytes from `seed`, in which no two 8-byte stretches are equal.
std::string sampleData(std::size_t size, std::uint64_t seed = 1);

}  // namespace tallow::test
