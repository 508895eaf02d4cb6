// Stands in for what the module asks of the system beside its files: memory, texts and message
// boxes. Destroy each of these before the module.
#pragma once

#include <windows.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/import_hook.hpp"

namespace tallow::test {

// Refuses the allocations of the module for which `fails`, asked at each one, returns true.
class AllocationFaults {
 public:
  using Rule = std::function<bool(std::size_t bytes)>;
  AllocationFaults(HMODULE module, Rule fails);

 private:
  bool fails(std::size_t bytes) const;

  Rule fails_;
  Hook<struct MallocTag, void*(std::size_t)> malloc_;
  Hook<struct CallocTag, void*(std::size_t, std::size_t)> calloc_;
};

// Replaces texts of the language library. A text that is empty is missing.
class ReplacedTexts {
 public:
  // Returns the text to take for an id, or nullopt for the library's own.
  using Choice = std::function<std::optional<std::string>(int id)>;
  ReplacedTexts(HMODULE module, Choice choice);
  ReplacedTexts(HMODULE module, int id, std::string text);

 private:
  Hook<struct LoadStringTag, int(HINSTANCE, UINT, char*, int)> loadString_;
};

// Answers the module's message boxes, which are noted and not shown.
class MessageBoxes {
 public:
  struct Box {
    HWND owner;
    std::string text;
    unsigned buttons;  // MB_OK, MB_YESNO
  };

  explicit MessageBoxes(HMODULE module, int answer = IDOK);

  std::vector<Box> shown;

 private:
  Hook<struct MessageBoxTag, int(HWND, const char*, const char*, UINT)> box_;
};

}  // namespace tallow::test
