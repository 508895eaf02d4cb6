#include "support/import_hook.hpp"

#include <cstdint>
#include <cstring>

namespace tallow::test {
namespace {

// Calls visit(name, slot) for each function imported by name, until visit returns true.
template <typename Visit>
void visitImports(HMODULE module, Visit visit) {
  auto* base = reinterpret_cast<std::uint8_t*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.VirtualAddress == 0) return;
  auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
  for (; library->Name != 0; ++library) {
    auto* name = reinterpret_cast<const IMAGE_THUNK_DATA64*>(base + library->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + library->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal)) continue;
      const auto* entry =
          reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      if (visit(reinterpret_cast<const char*>(entry->Name),
                reinterpret_cast<void**>(&slot->u1.Function))) {
        return;
      }
    }
  }
}

struct NotificationData {
  ULONG flags;
  const void* fullName;
  const void* baseName;
  void* base;
  ULONG size;
};

constexpr ULONG kLoaded = 1;

using Notify = void(CALLBACK*)(ULONG reason, const NotificationData* data, void* context);
using Register = LONG(NTAPI*)(ULONG flags, Notify notify, void* context, void** cookie);
using Unregister = LONG(NTAPI*)(void* cookie);

void* loaderFunction(const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("ntdll.dll"), name));
}

void CALLBACK onLoad(ULONG reason, const NotificationData* data, void* context) {
  if (reason != kLoaded) return;
  (*static_cast<std::function<void(HMODULE)>*>(context))(static_cast<HMODULE>(data->base));
}

}  // namespace

std::vector<std::string> importedNames(HMODULE module) {
  std::vector<std::string> names;
  visitImports(module, [&](const char* name, void**) {
    names.emplace_back(name);
    return false;
  });
  return names;
}

bool importsFunction(HMODULE module, const char* name) {
  bool found = false;
  visitImports(module, [&](const char* candidate, void**) {
    found = std::strcmp(candidate, name) == 0;
    return found;
  });
  return found;
}

void* replaceImport(HMODULE module, const char* name, void* replacement) {
  void* before = nullptr;
  bool found = false;
  visitImports(module, [&](const char* candidate, void** slot) {
    found = std::strcmp(candidate, name) == 0;
    if (!found) return false;
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
    before = *slot;
    *slot = replacement;
    VirtualProtect(slot, sizeof(*slot), protection, &protection);
    return true;
  });
  if (!found) throw std::runtime_error(std::string("not imported: ") + name);
  return before;
}

bool isLoaded(HMODULE module) {
  HMODULE found = nullptr;
  return GetModuleHandleExA(
             GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
             reinterpret_cast<LPCSTR>(module), &found) &&
         found == module;
}

LoadWatch::LoadWatch(std::function<void(HMODULE)> prepare) : prepare_(std::move(prepare)) {
  const auto add = reinterpret_cast<Register>(loaderFunction("LdrRegisterDllNotification"));
  if (add == nullptr || add(0, onLoad, &prepare_, &cookie_) != 0) {
    throw std::runtime_error("the loader does not report loads");
  }
}

LoadWatch::~LoadWatch() {
  reinterpret_cast<Unregister>(loaderFunction("LdrUnregisterDllNotification"))(cookie_);
}

}  // namespace tallow::test
