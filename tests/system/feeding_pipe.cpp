#include "system/feeding_pipe.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "support/child_process.hpp"

namespace tallow::test {

Process::Process(const std::vector<std::string>& words, const std::string& said) {
  std::string command;
  for (const std::string& word : words) command += '"' + word + "\" ";
  SECURITY_ATTRIBUTES inherited{sizeof(inherited), nullptr, TRUE};
  const HANDLE output = CreateFileA(said.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = output;
  const PROCESS_INFORMATION process = startProcess(command, startup);
  CloseHandle(output);
  CloseHandle(process.hThread);
  handle_ = process.hProcess;
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

FeedingPipe::FeedingPipe(std::string name, std::uint32_t bufferSize)
    : name_(std::move(name)),
      handle_(CreateNamedPipeA(name_.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 1, bufferSize,
                               bufferSize, 100, nullptr)) {
  if (handle_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot serve " + name_);
}

FeedingPipe::~FeedingPipe() {
  if (!isFeeding_) CloseHandle(handle_);
  join();
  CloseHandle(allGiven_);
}

void FeedingPipe::feed(std::string_view data, std::size_t piece, std::optional<std::size_t> at,
                       std::function<void()> onByte) {
  isFeeding_ = true;  // the thread closes the handle
  thread_ = std::thread([this, data, piece, at, onByte = std::move(onByte)] {
    ConnectNamedPipe(handle_, nullptr);
    std::size_t done = 0;
    bool told = !at;
    while (done < data.size()) {
      std::size_t count = std::min(piece, data.size() - done);
      if (!told) count = std::min(count, *at - done);
      DWORD written = 0;
      if (count != 0 &&
          !WriteFile(handle_, data.data() + done, static_cast<DWORD>(count), &written, nullptr)) {
        break;  // the reader has gone
      }
      done += written;
      if (!told && done >= *at) {
        told = true;
        onByte();
      }
    }
    CloseHandle(handle_);
    SetEvent(allGiven_);
  });
}

void FeedingPipe::waitUntilGivenTo(const Process& reader) const {
  const std::array<HANDLE, 2> events{allGiven_, reader.handle()};
  constexpr DWORD kLongest = 120'000;
  WaitForMultipleObjects(static_cast<DWORD>(events.size()), events.data(), FALSE, kLongest);
}

void FeedingPipe::join() {
  if (!thread_.joinable()) return;
  // If no reader ever came, the thread still waits for one.
  const HANDLE reader =
      CreateFileA(name_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (reader != INVALID_HANDLE_VALUE) CloseHandle(reader);
  thread_.join();
}

}  // namespace tallow::test
