// The test program runs itself again as a child: for what ends a process, or must not share one.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

namespace tallow::test {

// Names a piece of work that a child can do; declare one as a global of the test file.
class ChildWork {
 public:
  using Function = std::function<int(const std::vector<std::string>& arguments)>;
  ChildWork(const std::string& name, Function work);
};

// Runs the work in a new process and gives back its exit code, which is
// the exception code when it crashes. A child that does not end within two
// minutes is ended and answers 0xdead.
unsigned runChild(const std::string& name, const std::vector<std::string>& arguments = {});

// Starts a program; its handles are the caller's. Where the layout of the address space is random
// (see scripts/lib.sh), Wine fails to start about one in a few thousand, so it is tried again.
// Throws std::runtime_error with the system's error number.
PROCESS_INFORMATION startProcess(const std::string& command, STARTUPINFOA& startup);

// The main function of all programs that use this library.
int runTests(int argc, char** argv);

}  // namespace tallow::test
