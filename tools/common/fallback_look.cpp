#include "common/fallback_look.hpp"

#include <windows.h>

#include <array>

#include "common/surroundings.hpp"
#include "common/text.hpp"
#include "common/unique_handle.hpp"

namespace tallow::tools {
namespace {

std::string defaultFolder() {
  std::string folder = environmentValue(L"TEMP");
  if (!folder.empty()) return folder;
  folder = environmentValue(L"WINDIR");
  return folder.empty() ? "c:\\" : folder + "\\temp";
}

UniqueFileHandle openFile(const std::string& path, DWORD access, DWORD sharing) {
  return UniqueFileHandle(CreateFileW(toWide(path).c_str(), access, sharing, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

std::string fallbackPath(const config::Options& options) {
  if (options.fallbackFile.empty()) return {};
  const std::string folder =
      options.fallbackDirectory.empty() ? defaultFolder() : options.fallbackDirectory;
  return folder + "\\" + options.fallbackFile;
}

std::string lookAtFallbackFile(const std::string& path, const FallbackOwner& owner,
                               std::optional<std::uint64_t> position) {
  const UniqueFileHandle file =
      openFile(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
  if (!file) {
    const DWORD error = GetLastError();
    const bool absent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return absent ? kFallbackFileAbsent : "cannot be read: " + systemErrorText(error);
  }
  std::array<std::byte, fallback::kDataStartOffset> beginning{};
  DWORD length = 0;
  if (!ReadFile(file.get(), beginning.data(), static_cast<DWORD>(beginning.size()), &length,
                nullptr)) {
    return "cannot be read: " + systemErrorText(GetLastError());
  }
  const std::span<const std::byte> got = std::span(beginning).first(length);
  return position ? fallbackFault(got, owner, *position) : fallbackFault(got, owner);
}

bool isFallbackFileHeld(const std::string& path) {
  if (openFile(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ)) return false;
  return GetLastError() == ERROR_SHARING_VIOLATION;
}

}  // namespace tallow::tools
