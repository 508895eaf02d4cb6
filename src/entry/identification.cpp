#include <windows.h>

#include <commdlg.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "diag/application.hpp"
#include "diag/language_library.hpp"
#include "diag/messages.hpp"
#include "diag/system_error.hpp"
#include "entry/handlers.hpp"
#include "resources/version.h"

namespace tallow::entry {

namespace {

using diag::raise;

constinit std::array<TallowComponentVersion, 7> components = {{
    {"TALLOW", TALLOW_COMPONENT_VERSION, nullptr},
    {"DDAMLOG", TALLOW_COMPONENT_VERSION, nullptr},
    {"ERROR", TALLOW_COMPONENT_VERSION, nullptr},
    {"FILEDATA", TALLOW_COMPONENT_VERSION, nullptr},
    {"FSTRING", TALLOW_COMPONENT_VERSION, nullptr},
    {"INSTANCE", TALLOW_COMPONENT_VERSION, nullptr},
    {"PIDMMAIN", TALLOW_COMPONENT_VERSION, nullptr},
}};

// Holds the version of the language library. The interface requires that the list in a successful
// answer does not lead to it.
constinit TallowComponentVersion spare = {};

void copyText(char (&target)[TALLOW_ID_TEXT_SIZE], const std::string& text) {
  std::memset(target, 0, sizeof target);
  text.copy(target, sizeof target - 1);
}

// The title of the module's own file.
std::string fileTitle() {
  const std::wstring path = diag::application().path();
  if (path.empty()) raise<MessageId::kModuleNameNotFound>(diag::lastSystemErrorText().c_str());
  std::array<wchar_t, MAX_PATH> title = {};
  GetFileTitleW(path.c_str(), title.data(), static_cast<WORD>(title.size()));
  std::array<char, 2 * title.size()> text = {};
  WideCharToMultiByte(CP_ACP, 0, title.data(), -1, text.data(), static_cast<int>(text.size()) - 1,
                      nullptr, nullptr);
  return text.data();
}

// The version resource of a library, which may be mapped as data.
std::vector<char> versionResource(HMODULE library) {
  const HRSRC found = FindResourceW(library, MAKEINTRESOURCEW(VS_VERSION_INFO),
                                    reinterpret_cast<const wchar_t*>(RT_VERSION));
  const DWORD size = found != nullptr ? SizeofResource(library, found) : 0;
  if (size == 0) raise<MessageId::kVersionSizeNotFound>(diag::lastSystemErrorText().c_str());
  const auto* data = static_cast<const char*>(LoadResource(library, found));
  if (data == nullptr) raise<MessageId::kVersionNotReadable>(diag::lastSystemErrorText().c_str());
  return {data, data + size};
}

std::string fileVersion(HMODULE library) {
  const std::vector<char> information = versionResource(library);
  void* root = nullptr;
  UINT rootSize = 0;
  if (!VerQueryValueW(information.data(), L"\\", &root, &rootSize) ||
      rootSize < sizeof(VS_FIXEDFILEINFO)) {
    raise<MessageId::kVersionBlockNotFound>();
  }
  const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(root);
  return diag::message<MessageId::kVersionFormat>(static_cast<int>(HIWORD(fixed.dwFileVersionMS)),
                                                  static_cast<int>(LOWORD(fixed.dwFileVersionMS)),
                                                  static_cast<int>(HIWORD(fixed.dwFileVersionLS)),
                                                  static_cast<int>(LOWORD(fixed.dwFileVersionLS)));
}

}  // namespace

void identify(TallowIdBlock& block) {
  spare.next = nullptr;
  block.components = &spare;
  copyText(block.name, fileTitle());
  copyText(block.version, fileVersion(diag::application().module()));
  copyText(spare.version, fileVersion(diag::languageLibrary()));
  for (std::size_t i = 0; i + 1 < components.size(); ++i) components[i].next = &components[i + 1];
  block.components = components.data();
}

}  // namespace tallow::entry
