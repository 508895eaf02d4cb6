#include "feed/input_stream.hpp"

#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::feed {

using tools::systemErrorText;
using tools::ToolError;

InputStream::InputStream(const std::string& path) : name_(path) {
  if (path == "-") {
    name_ = "standard input";
    standard_ = GetStdHandle(STD_INPUT_HANDLE);
    return;
  }
  file_ = tools::UniqueFileHandle(CreateFileW(tools::toWide(path).c_str(), GENERIC_READ,
                                              FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                              OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file_) {
    throw ToolError("cannot read " + path + ": " + systemErrorText(GetLastError()) +
                    "; check the name behind --in");
  }
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
