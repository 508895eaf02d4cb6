// Replaces functions that a loaded module imports, in the very DLL that ships.
#pragma once

#include <windows.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tallow::test {

// The names of all functions that `module` imports, in the order of its import table.
std::vector<std::string> importedNames(HMODULE module);

bool importsFunction(HMODULE module, const char* name);

// Stores `replacement` for the function `name` in the import table of `module` and returns the old
// entry. Throws std::runtime_error if the module does not import `name`.
void* replaceImport(HMODULE module, const char* name, void* replacement);

// True if `module` has not been unloaded yet.
bool isLoaded(HMODULE module);

// Runs `replacement` instead of one imported function until it is destroyed or the module is
// unloaded. `Tag` (any type) distinguishes the hooks of a program: only one hook per tag and
// signature can exist at a time. Functions with a variable argument list cannot be hooked.
//
//   Hook<struct SleepTag, void(DWORD)> sleep(module, "Sleep", [&](DWORD ms) { … });
//   sleep.original(ms) calls the real one.
template <typename Tag, typename Signature>
class Hook;

template <typename Tag, typename Result, typename... Arguments>
class Hook<Tag, Result(Arguments...)> {
 public:
  using Function = Result (*)(Arguments...);

  Hook(HMODULE module, const char* name, std::function<Result(Arguments...)> replacement)
      : module_(module), name_(name) {
    if (current_) throw std::logic_error("this hook is in place already");
    current_ = std::move(replacement);
    try {
      original_ = reinterpret_cast<Function>(
          replaceImport(module, name, reinterpret_cast<void*>(&Hook::call)));
    } catch (...) {
      current_ = nullptr;
      throw;
    }
  }
  ~Hook() {
    if (isLoaded(module_)) {
      replaceImport(module_, name_.c_str(), reinterpret_cast<void*>(original_));
    }
    current_ = nullptr;
  }
  Hook(const Hook&) = delete;
  Hook& operator=(const Hook&) = delete;

  Result original(Arguments... arguments) const { return original_(arguments...); }

 private:
  static Result call(Arguments... arguments) { return current_(arguments...); }

  static inline std::function<Result(Arguments...)> current_;
  HMODULE module_;
  std::string name_;
  Function original_ = nullptr;
};

// Calls `prepare` with every DLL that is loaded while this exists, after its imports are bound and
// before its entry runs. There a hook catches what a module does while it is being loaded.
class LoadWatch {
 public:
  explicit LoadWatch(std::function<void(HMODULE)> prepare);
  ~LoadWatch();
  LoadWatch(const LoadWatch&) = delete;
  LoadWatch& operator=(const LoadWatch&) = delete;

 private:
  std::function<void(HMODULE)> prepare_;
  void* cookie_ = nullptr;
};

}  // namespace tallow::test
