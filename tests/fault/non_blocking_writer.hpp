// A writer that needs no thread of its own: it writes between the host's requests and never waits
// for the reader. (PipeEnd in support/pipe_ends.hpp waits, and so cannot serve a job in which
// anything may fail.)
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace tallow::test {

// Owns its end of the pipe. The destructor cancels what has not been taken and closes the end.
class NonBlockingWriter {
 public:
  NonBlockingWriter() = default;
  ~NonBlockingWriter() { end(); }
  NonBlockingWriter(const NonBlockingWriter&) = delete;
  NonBlockingWriter& operator=(const NonBlockingWriter&) = delete;

  // Creates the server end of a pipe, for the module to connect to.
  void serve(const std::wstring& name);
  // Connects to the pipe that the module serves. False if the module serves none.
  bool connect(const std::wstring& name);

  // Server end only: true if the module has connected.
  bool isConnected();

  // Gives the reader what comes next: chunk bytes, or everything if chunk is 0; after the last
  // byte, the end. Does nothing while the reader has not taken what it was given before.
  void give(std::string_view data, std::size_t chunk);
  // Gives the reader as much as there is room for, without waiting; the rest is lost. False if
  // there is no reader.
  bool offer(std::string_view data);
  // Gives the reader everything and the end, even while a request of the reader waits for them.
  void giveAllBeside(std::string_view data);
  // Ends the data now; what the reader has not taken may be lost.
  void end();

 private:
  bool isTaken();
  void writeLeft();

  HANDLE pipe_ = INVALID_HANDLE_VALUE;
  OVERLAPPED writing_ = {};
  bool underway_ = false;
  std::size_t given_ = 0;
  HANDLE beside_ = nullptr;  // a plain thread, which leaves nothing behind
  std::string left_;         // what that thread writes
};

}  // namespace tallow::test
