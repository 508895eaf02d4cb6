#include "non_blocking_writer.hpp"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tallow::test {

void NonBlockingWriter::serve(const std::wstring& name) {
  given_ = 0;
  constexpr DWORD kBuffer = 65536;
  pipe_ = CreateNamedPipeW(name.c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED,
                           PIPE_TYPE_BYTE, 4, kBuffer, kBuffer, 100, nullptr);
  if (pipe_ == INVALID_HANDLE_VALUE) {
    throw std::runtime_error("cannot serve the pipe: " + std::to_string(GetLastError()));
  }
}

bool NonBlockingWriter::connect(const std::wstring& name) {
  given_ = 0;
  pipe_ = CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                      nullptr);
  return pipe_ != INVALID_HANDLE_VALUE;
}

bool NonBlockingWriter::isConnected() {
  OVERLAPPED connecting = {};
  if (ConnectNamedPipe(pipe_, &connecting) || GetLastError() == ERROR_PIPE_CONNECTED) return true;
  if (GetLastError() == ERROR_IO_PENDING) {
    CancelIo(pipe_);
    DWORD ignored = 0;
    GetOverlappedResult(pipe_, &connecting, &ignored, TRUE);
  }
  return false;
}

bool NonBlockingWriter::isTaken() {
  if (!underway_) return true;
  DWORD written = 0;
  if (!GetOverlappedResult(pipe_, &writing_, &written, FALSE)) {
    if (GetLastError() == ERROR_IO_INCOMPLETE) return false;
    written = 0;  // the reader is gone
  }
  underway_ = false;
  given_ += written;
  return true;
}

void NonBlockingWriter::give(std::string_view data, std::size_t chunk) {
  if (pipe_ == INVALID_HANDLE_VALUE || beside_ != nullptr || !isTaken()) return;
  if (given_ == data.size()) {
    end();
    return;
  }
  const std::size_t rest = data.size() - given_;
  const std::size_t size = chunk != 0 ? std::min(chunk, rest) : rest;
  writing_ = {};
  underway_ = WriteFile(pipe_, data.data() + given_, static_cast<DWORD>(size), nullptr,
                        &writing_) != FALSE ||
              GetLastError() == ERROR_IO_PENDING;
  // Nothing is left to give, so the end can follow as soon as the reader's buffer has everything.
  if (isTaken() && given_ == data.size()) end();
}

bool NonBlockingWriter::offer(std::string_view data) {
  OVERLAPPED writing = {};
  if (WriteFile(pipe_, data.data(), static_cast<DWORD>(data.size()), nullptr, &writing)) {
    return true;
  }
  if (GetLastError() != ERROR_IO_PENDING) return false;
  CancelIo(pipe_);
  DWORD written = 0;
  return GetOverlappedResult(pipe_, &writing, &written, TRUE) ||
         GetLastError() == ERROR_OPERATION_ABORTED;
}

void NonBlockingWriter::writeLeft() {
  OVERLAPPED writing = {};
  writing.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  DWORD written = 0;
  if (WriteFile(pipe_, left_.data(), static_cast<DWORD>(left_.size()), nullptr, &writing) ||
      GetLastError() == ERROR_IO_PENDING) {
    GetOverlappedResult(pipe_, &writing, &written, TRUE);
  }
  CloseHandle(writing.hEvent);
  CloseHandle(pipe_);
}

void NonBlockingWriter::giveAllBeside(std::string_view data) {
  if (pipe_ == INVALID_HANDLE_VALUE || beside_ != nullptr || !isTaken()) return;
  left_ = data.substr(given_);
  given_ = data.size();
  const auto run = [](void* writer) -> DWORD {
    static_cast<NonBlockingWriter*>(writer)->writeLeft();
    return 0;
  };
  beside_ = CreateThread(nullptr, 0, run, this, 0, nullptr);
}

void NonBlockingWriter::end() {
  if (beside_ != nullptr) {
    // Repeatedly, since the thread may not have begun to write yet.
    constexpr DWORD kLook = 5;  // milliseconds
    while (WaitForSingleObject(beside_, kLook) == WAIT_TIMEOUT) CancelIoEx(pipe_, nullptr);
    CloseHandle(std::exchange(beside_, nullptr));
    pipe_ = INVALID_HANDLE_VALUE;
    underway_ = false;
    return;
  }
  if (pipe_ == INVALID_HANDLE_VALUE) return;
  if (underway_ && !isTaken()) {
    CancelIo(pipe_);
    DWORD written = 0;
    GetOverlappedResult(pipe_, &writing_, &written, TRUE);
  }
  CloseHandle(std::exchange(pipe_, INVALID_HANDLE_VALUE));
}

}  // namespace tallow::test
