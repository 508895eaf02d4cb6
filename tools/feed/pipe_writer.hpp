// The writing end of a named pipe.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::feed {

/// Connects, writes, and closes its end without ever disconnecting: a disconnect would throw away
/// what the reader has not read yet. All failures are ToolErrors.
class PipeWriter {
 public:
  /// Waits until somebody else creates the pipe and has room for a writer. The server learns which
  /// account this is, and can do nothing in its name.
  static PipeWriter connect(const std::string& pipeName, std::chrono::milliseconds patience);
  /// Creates the pipe and waits until a reader connects: one from this machine, of this process's
  /// account or of `allowed`, an account's name or empty.
  static PipeWriter serve(const std::string& pipeName, const std::string& allowed,
                          std::chrono::milliseconds patience);

  void write(std::span<const std::byte> bytes);
  /// The end of the data. As the server, returns only when the reader has read everything.
  void finish();

 private:
  enum class Role { kClient, kServer };
  PipeWriter(std::string pipeName, Role role, tools::UniqueFileHandle pipe);

  std::string pipeName_;
  Role role_;
  tools::UniqueFileHandle pipe_;
  tools::UniqueHandle done_;  // signalled when an overlapped call is through
};

}  // namespace tallow::feed
