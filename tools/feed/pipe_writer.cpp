#include "feed/pipe_writer.hpp"

#include <algorithm>
#include <utility>

#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "feed/pipe_rights.hpp"

namespace tallow::feed {
namespace {

using Clock = std::chrono::steady_clock;
using tools::ExitStatus;
using tools::MisuseError;
using tools::systemErrorText;
using tools::ToolError;

constexpr std::chrono::milliseconds kLookAgain{20};
constexpr DWORD kBufferSize = 2U << 20;

std::string seconds(std::chrono::milliseconds patience) {
  return std::to_string(patience.count() / 1000) + " s";
}

bool readerIsGone(DWORD error) {
  return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
}

ToolError notInTime(const std::string& pipeName, bool wasThere,
                    std::chrono::milliseconds patience) {
  const std::string within = " within " + seconds(patience);
  return ToolError(wasThere ? pipeName + " had no room for this writer" + within +
                                  ": another holds it; end that one, or wait longer (--wait)"
                            : "nobody created " + pipeName + within +
                                  "; start the host, or wait longer (--wait)",
                   ExitStatus::kRestartable);
}

tools::UniqueFileHandle tryOpen(const std::wstring& name) {
  constexpr DWORD kFlags = FILE_FLAG_OVERLAPPED | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION;
  return tools::UniqueFileHandle(
      CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, kFlags, nullptr));
}

}  // namespace

PipeWriter::PipeWriter(std::string pipeName, Role role, tools::UniqueFileHandle pipe)
    : pipeName_(std::move(pipeName)),
      role_(role),
      pipe_(std::move(pipe)),
      done_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

PipeWriter PipeWriter::connect(const std::string& pipeName, std::chrono::milliseconds patience) {
  const std::wstring name = tools::toWide(pipeName);
  const auto deadline = Clock::now() + patience;
  bool wasThere = false;
  for (;;) {
    if (tools::UniqueFileHandle pipe = tryOpen(name)) {
      return {pipeName, Role::kClient, std::move(pipe)};
    }
    const DWORD error = GetLastError();
    if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PIPE_BUSY) {
      throw MisuseError("cannot open " + pipeName + ": " + systemErrorText(error) +
                        (error == ERROR_ACCESS_DENIED
                             ? "; its server may be a writer too: is --serve used on both sides?"
                             : ""));
    }
    wasThere = wasThere || error == ERROR_PIPE_BUSY;
    if (Clock::now() >= deadline) throw notInTime(pipeName, wasThere, patience);
    Sleep(static_cast<DWORD>(kLookAgain.count()));
  }
}

PipeWriter PipeWriter::serve(const std::string& pipeName, const std::string& allowed,
                             std::chrono::milliseconds patience) {
  PipeRights rights(allowed);
  tools::UniqueFileHandle pipe(
      CreateNamedPipeW(tools::toWide(pipeName).c_str(),
                       PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
                       PIPE_TYPE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, kBufferSize,
                       kBufferSize, 0, rights.get()));
  if (!pipe) {
    const DWORD error = GetLastError();
    throw MisuseError("cannot create " + pipeName + ": " + systemErrorText(error) +
                      "; leave --serve out when another program has created the pipe");
  }
  PipeWriter writer(pipeName, Role::kServer, std::move(pipe));
  OVERLAPPED connecting{};
  connecting.hEvent = writer.done_.get();
  if (ConnectNamedPipe(writer.pipe_.get(), &connecting)) return writer;
  DWORD error = GetLastError();
  if (error == ERROR_IO_PENDING) {
    error = ERROR_SUCCESS;
    if (WaitForSingleObject(writer.done_.get(), static_cast<DWORD>(patience.count())) ==
        WAIT_TIMEOUT) {
      CancelIo(writer.pipe_.get());
    }
    DWORD unused = 0;
    if (!GetOverlappedResult(writer.pipe_.get(), &connecting, &unused, TRUE)) {
      error = GetLastError();
    }
  }
  if (error == ERROR_SUCCESS || error == ERROR_PIPE_CONNECTED) return writer;
  if (error == ERROR_OPERATION_ABORTED) {
    throw ToolError("nobody opened " + pipeName + " within " + seconds(patience) +
                        "; start the host, or wait longer (--wait)",
                    ExitStatus::kRestartable);
  }
  throw ToolError("nobody can connect to " + pipeName + ": " + systemErrorText(error));
}

void PipeWriter::write(std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    OVERLAPPED writing{};
    writing.hEvent = done_.get();
    DWORD written = 0;
    DWORD error = ERROR_SUCCESS;
    if (!WriteFile(pipe_.get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr,
                   &writing)) {
      error = GetLastError();
    }
    if (error == ERROR_SUCCESS || error == ERROR_IO_PENDING) {
      error = GetOverlappedResult(pipe_.get(), &writing, &written, TRUE) ? ERROR_SUCCESS
                                                                         : GetLastError();
    }
    if (readerIsGone(error)) {
      throw ToolError("the reader closed " + pipeName_ +
                      " before the end of the data; see what the host says");
    }
    if (error != ERROR_SUCCESS) {
      throw ToolError("cannot write to " + pipeName_ + ": " + systemErrorText(error));
    }
    bytes = bytes.subspan(written);
  }
}

void PipeWriter::finish() {
  if (role_ == Role::kServer && !FlushFileBuffers(pipe_.get())) {
    const DWORD error = GetLastError();
    throw ToolError("the reader left " + pipeName_ + " before it had read everything: " +
                    systemErrorText(error) + "; see what the host says");
  }
  pipe_.reset();
}

}  // namespace tallow::feed
