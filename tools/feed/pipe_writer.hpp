// The writing end of a named pipe.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::feed {

// Connects, writes, and closes its end. It never disconnects, because that would throw away what
// the reader has not read yet. All failures are ToolErrors.
class PipeWriter {
 public:
  // Waits until another process has created the pipe and it has room for a writer. The server
  // learns which account this is, but cannot act in its name.
  static PipeWriter connect(const std::string& pipeName, std::chrono::milliseconds patience);
  // Creates the pipe and waits until a reader connects. Only programs on this machine can, under
  // this process's account or under `allowed` (the name of an account, or empty).
  static PipeWriter serve(const std::string& pipeName, const std::string& allowed,
                          std::chrono::milliseconds patience);

  void write(std::span<const std::byte> bytes);
  // Ends the data. A server waits here until the reader has read everything.
  void finish();

 private:
  enum class Role { kClient, kServer };
  PipeWriter(std::string pipeName, Role role, tools::UniqueFileHandle pipe);

  std::string pipeName_;
  Role role_;
  tools::UniqueFileHandle pipe_;
  tools::UniqueHandle done_;  // signalled when an overlapped call has finished
};

}  // namespace tallow::feed
