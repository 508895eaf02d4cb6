#include "support/process.hpp"

#include <stdexcept>

namespace tallow::test {
namespace {

// Returns the process; the caller owns its handle. With a random layout of the address space (see
// scripts/lib.sh), Wine fails to start about one in a few thousand programs, so it tries again.
HANDLE start(const std::string& command, STARTUPINFOA& startup) {
  constexpr int kTries = 3;
  DWORD error = 0;
  for (int i = 0; i < kTries; ++i) {
    std::string line = command;
    PROCESS_INFORMATION process{};
    // Standard handles must be inherited if they are given.
    const BOOL inherits = (startup.dwFlags & STARTF_USESTDHANDLES) != 0 ? TRUE : FALSE;
    if (CreateProcessA(nullptr, line.data(), nullptr, nullptr, inherits, 0, nullptr, nullptr,
                       &startup, &process)) {
      CloseHandle(process.hThread);
      return process.hProcess;
    }
    error = GetLastError();
  }
  throw std::runtime_error(std::to_string(error) + ": cannot start " + command);
}

HANDLE startWithOutput(const std::string& command, const std::string& path) {
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  const HANDLE output = CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = output;
  const HANDLE process = start(command, startup);
  CloseHandle(output);
  return process;
}

}  // namespace

Process::Process(const std::vector<std::string>& words, const std::string& output) {
  std::string command;
  for (const std::string& word : words) command += '"' + word + "\" ";
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  handle_ = output.empty() ? start(command, startup) : startWithOutput(command, output);
}

Process::~Process() {
  end();
  waitFor(INFINITE);
  CloseHandle(handle_);
}

unsigned Process::exitCode() {
  constexpr DWORD kLongest = 120'000;
  if (!waitFor(kLongest)) end();
  waitFor(INFINITE);
  DWORD code = 0;
  GetExitCodeProcess(handle_, &code);
  return code;
}

}  // namespace tallow::test
