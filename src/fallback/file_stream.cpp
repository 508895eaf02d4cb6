#include "fallback/file_stream.hpp"

#include <share.h>

namespace tallow::fallback {

FileStream FileStream::open(const std::string& name, const char* mode) {
  FileStream file;
  file.stream_.reset(_fsopen(name.c_str(), mode, _SH_DENYWR));
  if (file) std::setvbuf(file.stream_.get(), nullptr, _IONBF, 0);
  return file;
}

std::int64_t FileStream::tell() noexcept {
  return _ftelli64(stream_.get());
}

bool FileStream::seek(std::uint64_t offset) noexcept {
  return _fseeki64(stream_.get(), static_cast<std::int64_t>(offset), SEEK_SET) == 0;
}

bool FileStream::seekToEnd() noexcept {
  return _fseeki64(stream_.get(), 0, SEEK_END) == 0;
}

std::size_t FileStream::read(void* data, std::size_t size) noexcept {
  return std::fread(data, 1, size, stream_.get());
}

std::size_t FileStream::write(const void* data, std::size_t size) noexcept {
  return std::fwrite(data, 1, size, stream_.get());
}

bool FileStream::flush() noexcept {
  return std::fflush(stream_.get()) == 0;
}

}  // namespace tallow::fallback
