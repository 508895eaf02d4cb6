// The test program runs itself again as a child, for tests that end the process or must not share
// it.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace tallow::test {

// Names a piece of work that a child can do. Declare it as a global of the test file.
class ChildWork {
 public:
  using Function = std::function<int(const std::vector<std::string>& arguments)>;
  ChildWork(const std::string& name, Function work);
};

// Runs the work in a new process and returns its exit code, or the exception code if it crashes. A
// child that does not end within two minutes is ended, with the result 0xdead.
unsigned runChild(const std::string& name, const std::vector<std::string>& arguments = {});

// The main function of all programs that use this library.
int runTests(int argc, char** argv);

}  // namespace tallow::test
