#include "fallback/file_stream.hpp"

#include <windows.h>

#include <share.h>

#include "diag/messages.hpp"

namespace tallow::fallback {
namespace {

void forgetErrors() noexcept {
  SetLastError(ERROR_SUCCESS);
}

// The error since forgetErrors, or the substitute if there was none.
DWORD errorOr(DWORD substitute) noexcept {
  const DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? error : substitute;
}

}  // namespace

FileStream FileStream::open(const std::string& name, const char* mode) {
  FileStream file;
  forgetErrors();
  file.stream_.reset(_fsopen(name.c_str(), mode, _SH_DENYWR));
  if (file) {
    std::setvbuf(file.stream_.get(), nullptr, _IONBF, 0);
  } else {
    file.systemError_ = errorOr(ERROR_TOO_MANY_OPEN_FILES);
  }
  return file;
}

std::int64_t FileStream::tell() noexcept {
  forgetErrors();
  const std::int64_t position = _ftelli64(stream_.get());
  if (position == -1) systemError_ = errorOr(ERROR_SEEK);
  return position;
}

std::uint64_t FileStream::tellOrRaise() {
  const std::int64_t position = tell();
  if (position == -1) {
    diag::raise<MessageId::kFallbackTellFailed>(diag::systemErrorText(systemError_).c_str());
  }
  return static_cast<std::uint64_t>(position);
}

bool FileStream::seek(std::uint64_t offset) noexcept {
  forgetErrors();
  if (_fseeki64(stream_.get(), static_cast<std::int64_t>(offset), SEEK_SET) == 0) return true;
  systemError_ = errorOr(ERROR_SEEK);
  return false;
}

void FileStream::seekOrRaise(std::uint64_t offset) {
  if (seek(offset)) return;
  diag::raise<MessageId::kFallbackSeekFailed>(diag::systemErrorText(systemError_).c_str());
}

bool FileStream::seekOrClose(std::uint64_t offset) noexcept {
  if (stream_ && !seek(offset)) close();
  return static_cast<bool>(stream_);
}

void FileStream::seekToEnd() noexcept {
  _fseeki64(stream_.get(), 0, SEEK_END);
}

std::size_t FileStream::read(void* data, std::size_t size) noexcept {
  forgetErrors();
  const std::size_t count = std::fread(data, 1, size, stream_.get());
  if (count != size) systemError_ = errorOr(ERROR_HANDLE_EOF);
  return count;
}

std::size_t FileStream::write(const void* data, std::size_t size) noexcept {
  forgetErrors();
  const std::size_t count = std::fwrite(data, 1, size, stream_.get());
  if (count != size) systemError_ = errorOr(ERROR_WRITE_FAULT);
  return count;
}

bool FileStream::flush() noexcept {
  forgetErrors();
  if (std::fflush(stream_.get()) == 0) return true;
  systemError_ = errorOr(ERROR_WRITE_FAULT);
  return false;
}

}  // namespace tallow::fallback
