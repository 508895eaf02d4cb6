#include "common/beside_program.hpp"

#include <windows.h>

#include <string>

namespace tallow::tools {

std::filesystem::path besideProgram(const wchar_t* name) {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return std::filesystem::path(path).replace_filename(name);
}

}  // namespace tallow::tools
