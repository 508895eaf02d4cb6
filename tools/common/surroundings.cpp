#include "common/surroundings.hpp"

#include <windows.h>

#include <filesystem>

#include "common/text.hpp"

namespace tallow::tools {

std::string environmentValue(const wchar_t* name) {
  std::wstring value(32768, L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return toUtf8(value);
}

std::string fullPath(const std::string& path) {
  return toUtf8(std::filesystem::absolute(toWide(path)).wstring());
}

}  // namespace tallow::tools
