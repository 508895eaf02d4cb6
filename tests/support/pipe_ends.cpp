#include "support/pipe_ends.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tallow::test {
namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": system error " + std::to_string(GetLastError()));
}

}  // namespace

PipeEnd PipeEnd::connect(const std::string& name) {
  const HANDLE handle =
      CreateFileA(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) fail("cannot connect to " + name);
  return PipeEnd(handle);
}

PipeEnd PipeEnd::serve(const std::string& name, std::uint32_t bufferSize) {
  const HANDLE handle = CreateNamedPipeA(name.c_str(), PIPE_ACCESS_OUTBOUND, PIPE_TYPE_BYTE, 4,
                                         bufferSize, bufferSize, 100, nullptr);
  if (handle == INVALID_HANDLE_VALUE) fail("cannot make " + name);
  return PipeEnd(handle);
}

PipeEnd::PipeEnd(PipeEnd&& other) noexcept
    : handle_(std::exchange(other.handle_, INVALID_HANDLE_VALUE)) {}

void PipeEnd::waitForReader() {
  if (!ConnectNamedPipe(handle_, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) {
    fail("wait for a reader");
  }
}

void PipeEnd::write(std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    if (!WriteFile(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
      fail("write to pipe");
    }
    bytes.remove_prefix(written);
  }
}

void PipeEnd::flush() {
  if (!FlushFileBuffers(handle_)) fail("flush pipe");
}

void PipeEnd::close() {
  if (handle_ != INVALID_HANDLE_VALUE) CloseHandle(std::exchange(handle_, INVALID_HANDLE_VALUE));
}

void PipeEnd::disconnect() {
  if (!DisconnectNamedPipe(handle_)) fail("disconnect pipe");
}

WriterThread::WriterThread(std::function<void()> work)
    : thread_([work = std::move(work)] {
        try {
          work();
        } catch (const std::exception& error) {
          ADD_FAILURE() << "writer: " << error.what();
        }
      }) {}

WriterThread writeAll(const std::string& name, std::string data, std::size_t chunk) {
  return WriterThread(
      [end = std::make_shared<PipeEnd>(PipeEnd::connect(name)), data = std::move(data), chunk] {
        for (std::string_view rest = data; !rest.empty();
             rest.remove_prefix(std::min(chunk, rest.size()))) {
          end->write(rest.substr(0, chunk));
        }
        end->close();
      });
}

std::string sampleData(std::size_t size, std::uint64_t seed) {
  std::string data(size, '\0');
  std::uint64_t state = seed * 0x9e3779b97f4a7c15u;
  for (std::size_t i = 0; i < size; i += 8) {
    state += 0x9e3779b97f4a7c15u;
    std::uint64_t word = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9u;
    word ^= word >> 27;
    std::copy_n(reinterpret_cast<const char*>(&word), std::min<std::size_t>(8, size - i),
                data.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return data;
}

}  // namespace tallow::test
