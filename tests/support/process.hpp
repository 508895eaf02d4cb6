// A program that runs beside the test.
#pragma once

#include <windows.h>

#include <atomic>
#include <string>
#include <vector>

namespace tallow::test {

// Owns the program: the destructor ends it if it still runs, and waits until it is gone.
class Process {
 public:
  static constexpr unsigned kEnded = 0xdead;  // the exit code of a program that was ended

  // Starts the program words[0]. Its output goes to the file `output`, or with none to where the
  // test's own goes. Throws std::runtime_error with the system's error number.
  explicit Process(const std::vector<std::string>& words, const std::string& output = {});
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  void end() {
    if (TerminateProcess(handle_, kEnded)) ended_ = true;
  }
  // True if end() found it alive. Its exit code need not show this, if it was just about to end.
  bool wasEnded() const { return ended_; }
  HANDLE handle() const { return handle_; }
  // False if it still runs after that time.
  bool waitFor(DWORD milliseconds) const {
    return WaitForSingleObject(handle_, milliseconds) == WAIT_OBJECT_0;
  }
  // Waits for its end; a program that takes two minutes is ended.
  unsigned exitCode();

 private:
  HANDLE handle_ = nullptr;
  std::atomic<bool> ended_ = false;
};

}  // namespace tallow::test
