// The module as a loaded library.
#pragma once

#include <windows.h>
#include <tallow/module.hpp>
#include <tallow/windows_text.hpp>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace tallow {

// Name and version of the module or of a part of it, as "tallowin" and "01.00.00.00".
struct Version {
  std::string name;
  std::string version;
};

// Owns tallowin.dll. The destructor sends Shut and unloads the DLL, after which no Module and no
// Instance may be used: destroy them first. Create it in the thread that will send all requests.
// A process may have only one Library at a time.
class Library {
 public:
  // tallowin.dll in the folder of the running program.
  Library() : Library(besideProgram()) {}
  // `path` of the DLL, UTF-16. A name without a folder means a file in the working directory; the
  // system's search path is not used, since it could find somebody else's file. Throws SystemError
  // if the DLL cannot be loaded. If that is for want of a language library, the module first shows
  // a message box and waits until a person closes it.
  explicit Library(const std::wstring& path) : handle_(load(path)) {
    const FARPROC symbol = GetProcAddress(handle_, "PIDMMain");
    if (symbol == nullptr) {
      const DWORD error = GetLastError();
      FreeLibrary(handle_);
      throw SystemError(detail::forMessage(path) + " has no PIDMMain", error);
    }
    static_assert(sizeof entry_ == sizeof symbol);
    std::memcpy(static_cast<void*>(&entry_), static_cast<const void*>(&symbol), sizeof entry_);
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  ~Library() {
    TallowRequestBlock request{};
    request.requestCode = pmiPIDMOptShut;
    entry_(&request, nullptr);
    FreeLibrary(handle_);
  }

  // The function that takes the requests; never null. Valid as long as the Library.
  TallowPIDMMain entry() const noexcept { return entry_; }

  // Name and version of the module, then those of its parts. Throws Error.
  std::vector<Version> versions() const {
    TallowIdBlock block{};
    send(entry_, pmiPIDMOptID, &block);
    std::vector<Version> all{
        {static_cast<const char*>(block.name), static_cast<const char*>(block.version)}};
    for (const TallowComponentVersion* part = block.components; part != nullptr;
         part = part->next) {
      all.push_back(
          {static_cast<const char*>(part->name), static_cast<const char*>(part->version)});
    }
    return all;
  }

 private:
  static std::wstring besideProgram() {
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))) ==
           path.size()) {
      path.resize(path.size() * 2);
    }
    path.resize(length);
    return path.substr(0, path.find_last_of(L'\\') + 1) + L"tallowin.dll";
  }

  static HMODULE load(const std::wstring& path) {
    const DWORD room = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    std::wstring full(room, L'\0');
    full.resize(GetFullPathNameW(path.c_str(), room, full.data(), nullptr));
    const HMODULE handle = LoadLibraryExW(full.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (handle == nullptr)
      throw SystemError("cannot load " + detail::forMessage(path), GetLastError());
    return handle;
  }

  HMODULE handle_;
  TallowPIDMMain entry_ = nullptr;
};

}  // namespace tallow
