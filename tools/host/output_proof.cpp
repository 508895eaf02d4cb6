#include "host/output_proof.hpp"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>

#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "common/unique_handle.hpp"
#include "fallback/md5.hpp"

namespace tallow::host {
namespace {

constexpr std::uint64_t kEndSize = 4096;  // bytes

using tools::UniqueFileHandle;

[[noreturn]] void fail(const std::string& path) {
  throw tools::ToolError("cannot read " + path + ": " + tools::systemErrorText(GetLastError()));
}

std::string identityOf(const UniqueFileHandle& file, const std::string& path) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (!GetFileInformationByHandle(file.get(), &information)) fail(path);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%08lx-%08lx%08lx", information.dwVolumeSerialNumber,
                information.nFileIndexHigh, information.nFileIndexLow);
  return text.data();
}

std::string digestOf(const std::byte* bytes, std::size_t length) {
  fallback::Md5Context context;
  fallback::md5Init(context);
  fallback::md5Update(context, bytes, length);
  std::string text;
  for (const std::uint8_t byte : fallback::md5Final(context)) {
    std::array<char, 3> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x", byte);
    text += digits.data();
  }
  return text;
}

}  // namespace

OutputProof proofOf(const std::string& path, std::uint64_t length) {
  const UniqueFileHandle file(CreateFileW(tools::toWide(path).c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) fail(path);
  std::array<std::byte, kEndSize> end{};
  const auto wanted = static_cast<DWORD>(std::min(length, kEndSize));
  LARGE_INTEGER start{};
  start.QuadPart = static_cast<LONGLONG>(length - wanted);
  DWORD got = 0;
  if (!SetFilePointerEx(file.get(), start, nullptr, FILE_BEGIN) ||
      !ReadFile(file.get(), end.data(), wanted, &got, nullptr)) {
    fail(path);
  }
  if (got != wanted) throw tools::ToolError(path + " has become shorter; nobody else may write it");
  return {identityOf(file, path), digestOf(end.data(), wanted)};
}

}  // namespace tallow::host
