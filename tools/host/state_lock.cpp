#include "host/state_lock.hpp"

#include <windows.h>

#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::host {
namespace {

// What the holder has written into the file. Empty if it cannot be read now.
std::string holderOf(const std::wstring& path) {
  const tools::UniqueFileHandle file(CreateFileW(
      path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  std::string text(16, '\0');
  DWORD length = 0;
  if (!file ||
      !ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &length, nullptr)) {
    return {};
  }
  text.resize(length);
  return text.find_first_not_of("0123456789") == std::string::npos ? text : std::string();
}

}  // namespace

StateLock::StateLock(const std::string& statePath) {
  const std::wstring path = tools::toWide(statePath + ".lock");
  // Nobody else can open it for writing while we have it open. Others can read it, to see who holds
  // it.
  file_ = tools::UniqueFileHandle(CreateFileW(
      path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  if (!file_) {
    const DWORD error = GetLastError();
    if (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED) {
      throw tools::ToolError("cannot write " + statePath + ".lock: " +
                             tools::systemErrorText(error) + "; name another place with --state");
    }
    const std::string holder = holderOf(path);
    if (error == ERROR_ACCESS_DENIED && holder.empty()) {
      throw tools::ToolError("cannot write " + statePath +
                             ".lock: " + tools::systemErrorText(error) +
                             "; check its permissions or name another place with --state");
    }
    throw StateInUse(
        "another tallow-host" + (holder.empty() ? std::string() : " (process " + holder + ")") +
        " is at work on the job of " + statePath + "; wait for its end, or end it first");
  }
  const std::string number = std::to_string(GetCurrentProcessId());
  DWORD written = 0;
  WriteFile(file_.get(), number.data(), static_cast<DWORD>(number.size()), &written, nullptr);
}

}  // namespace tallow::host
