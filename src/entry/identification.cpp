#include <windows.h>

#include <commdlg.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "diag/language_library.hpp"
#include "diag/messages.hpp"
#include "entry/application.hpp"
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

// Holds the version of the language library. The interface requires that the list in a successful
// answer does not lead to it.
constinit TallowComponentVersion spare = {};

void copyText(char (&target)[TALLOW_ID_TEXT_SIZE], const std::string& text) {
  std::memset(target, 0, sizeof target);
  text.copy(target, sizeof target - 1);
}

// A file's name in UTF-16 and in the code page, which need not have all of its characters.
struct FileName {
  std::wstring wide;
  std::string narrow;
};

std::string toCodePage(const std::wstring& text) {
  std::array<char, 2 * kPathSize> narrow = {};
  WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, narrow.data(),
                      static_cast<int>(narrow.size()) - 1, nullptr, nullptr);
  return narrow.data();
}

bool codePageSpells(const FileName& file) {
  std::array<wchar_t, kPathSize> wide = {};
  MultiByteToWideChar(CP_ACP, 0, file.narrow.c_str(), -1, wide.data(),
                      static_cast<int>(wide.size()) - 1);
  return file.wide == wide.data();
}

FileName moduleFile() {
  std::array<char, kPathSize> path = {};
  if (GetModuleFileNameA(application().module(), path.data(), kPathSize) == 0) {
    raise<MessageId::kModuleNameNotFound>(diag::lastSystemErrorText().c_str());
  }
  return {application().path(), path.data()};
}

// Not asked for by its handle: a library that is mapped as data has no name.
FileName languageFile() {
  const std::wstring path = diag::languageLibraryPath(application().path());
  return {path, toCodePage(path)};
}

std::string fileTitle(const FileName& file) {
  std::array<char, kPathSize> title = {};
  GetFileTitleA(file.narrow.c_str(), title.data(), kPathSize);
  return title.data();
}

// The wide calls serve where the narrow ones can't name the file.
std::vector<char> versionInformation(const FileName& file) {
  const bool narrow = codePageSpells(file);
  DWORD ignored = 0;
  const DWORD size = narrow ? GetFileVersionInfoSizeA(file.narrow.c_str(), &ignored)
                            : GetFileVersionInfoSizeW(file.wide.c_str(), &ignored);
  if (size == 0) raise<MessageId::kVersionSizeNotFound>(diag::lastSystemErrorText().c_str());
  std::vector<char> information(size);
  if (!(narrow ? GetFileVersionInfoA(file.narrow.c_str(), 0, size, information.data())
               : GetFileVersionInfoW(file.wide.c_str(), 0, size, information.data()))) {
    raise<MessageId::kVersionNotReadable>(diag::lastSystemErrorText().c_str());
  }
  return information;
}

std::string fileVersion(const FileName& file) {
  const std::vector<char> information = versionInformation(file);
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

void describe(const FileName& file, char (&name)[TALLOW_ID_TEXT_SIZE],
              char (&version)[TALLOW_ID_TEXT_SIZE]) {
  copyText(name, fileTitle(file));
  copyText(version, fileVersion(file));
}

}  // namespace

void identify(TallowIdBlock& block) {
  spare.next = nullptr;
  block.components = &spare;
  describe(moduleFile(), block.name, block.version);
  describe(languageFile(), spare.name, spare.version);
  for (std::size_t i = 0; i + 1 < components.size(); ++i) components[i].next = &components[i + 1];
  block.components = components.data();
}

}  // namespace tallow::entry
