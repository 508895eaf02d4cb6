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

constexpr std::size_t kPathSize = 261;

constinit std::array<TallowComponentVersion, 7> components = {{
    {"TALLOW", TALLOW_COMPONENT_VERSION, nullptr},
    {"DDAMLOG", TALLOW_COMPONENT_VERSION, nullptr},
    {"ERROR", TALLOW_COMPONENT_VERSION, nullptr},
    {"FILEDATA", TALLOW_COMPONENT_VERSION, nullptr},
    {"FSTRING", TALLOW_COMPONENT_VERSION, nullptr},
    {"INSTANCE", TALLOW_COMPONENT_VERSION, nullptr},
    {"PIDMMAIN", TALLOW_COMPONENT_VERSION, nullptr},
}};

// Holds what is found out about the language library; the answer never leads to it: deliberate.
constinit TallowComponentVersion spare = {};

void copyText(char (&target)[TALLOW_ID_TEXT_SIZE], const std::string& text) {
  std::memset(target, 0, sizeof target);
  text.copy(target, sizeof target - 1);
}

std::string modulePath(HMODULE module) {
  char path[kPathSize] = {};
  if (GetModuleFileNameA(module, path, kPathSize) == 0) {
    raise<MessageId::kModuleNameNotFound>(diag::lastSystemErrorText().c_str());
  }
  return path;
}

std::string fileTitle(const std::string& path) {
  char title[kPathSize] = {};
  GetFileTitleA(path.c_str(), title, kPathSize);
  return title;
}

std::string fileVersion(const std::string& path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeA(path.c_str(), &ignored);
  if (size == 0) raise<MessageId::kVersionSizeNotFound>(diag::lastSystemErrorText().c_str());
  std::vector<char> information(size);
  if (!GetFileVersionInfoA(path.c_str(), 0, size, information.data())) {
    raise<MessageId::kVersionNotReadable>(diag::lastSystemErrorText().c_str());
  }
  void* root = nullptr;
  UINT rootSize = 0;
  if (!VerQueryValueA(information.data(), "\\", &root, &rootSize) ||
      rootSize < sizeof(VS_FIXEDFILEINFO)) {
    raise<MessageId::kVersionBlockNotFound>();
  }
  const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(root);
  return diag::message<MessageId::kVersionFormat>(static_cast<int>(HIWORD(fixed.dwFileVersionMS)),
                                                  static_cast<int>(LOWORD(fixed.dwFileVersionMS)),
                                                  static_cast<int>(HIWORD(fixed.dwFileVersionLS)),
                                                  static_cast<int>(LOWORD(fixed.dwFileVersionLS)));
}

void describe(HMODULE module, char (&name)[TALLOW_ID_TEXT_SIZE],
              char (&version)[TALLOW_ID_TEXT_SIZE]) {
  const std::string path = modulePath(module);
  copyText(name, fileTitle(path));
  copyText(version, fileVersion(path));
}

}  // namespace

void identify(TallowIdBlock& block) {
  spare.next = nullptr;
  block.components = &spare;
  describe(diag::application().module(), block.name, block.version);
  describe(diag::languageLibrary(), spare.name, spare.version);
  for (std::size_t i = 0; i + 1 < components.size(); ++i) components[i].next = &components[i + 1];
  block.components = components.data();
}

}  // namespace tallow::entry
