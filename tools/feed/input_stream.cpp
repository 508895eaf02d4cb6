#include "feed/input_stream.hpp"

#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::feed {

using tools::MisuseError;
using tools::systemErrorText;
using tools::ToolError;

InputStream::InputStream(const std::string& path) : name_(path) {
  if (path == "-") {
    name_ = "standard input";
    standard_ = GetStdHandle(STD_INPUT_HANDLE);
    return;
  }
  const std::wstring wide = tools::toWide(path);
  file_ = tools::UniqueFileHandle(CreateFileW(wide.c_str(), GENERIC_READ,
                                              FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                              OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (file_) return;
  const DWORD error = GetLastError();
  const DWORD attributes = GetFileAttributesW(wide.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    throw MisuseError(path + " is a folder; name a file with --in");
  }
  throw MisuseError("cannot read " + path + ": " + systemErrorText(error) +
                    "; check the name given to --in");
}

std::optional<std::uint64_t> InputStream::size() const {
  LARGE_INTEGER size{};
  if (GetFileType(get()) != FILE_TYPE_DISK || !GetFileSizeEx(get(), &size)) return std::nullopt;
  return static_cast<std::uint64_t>(size.QuadPart);
}

std::size_t InputStream::read(std::span<std::byte> buffer) {
  DWORD got = 0;
  if (!ReadFile(get(), buffer.data(), static_cast<DWORD>(buffer.size()), &got, nullptr)) {
    const DWORD error = GetLastError();
    if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) return 0;
    throw ToolError("cannot read " + name_ + ": " + systemErrorText(error) +
                    "; the host has taken a part of the data for the whole: do not use it");
  }
  return got;
}

}  // namespace tallow::feed
