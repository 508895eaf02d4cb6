#include "support/system_faults.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tallow::test {

AllocationFaults::AllocationFaults(HMODULE module, Rule rule)
    : fails_(std::move(rule)),
      malloc_(module, "malloc",
              [this](std::size_t bytes) -> void* {
                return fails(bytes) ? nullptr : malloc_.original(bytes);
              }),
      calloc_(module, "calloc", [this](std::size_t items, std::size_t bytes) -> void* {
        return fails(items * bytes) ? nullptr : calloc_.original(items, bytes);
      }) {}

bool AllocationFaults::fails(std::size_t bytes) const {
  if (!fails_(bytes)) return false;
  errno = ENOMEM;
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return true;
}

ReplacedTexts::ReplacedTexts(HMODULE module, Choice choice)
    : loadString_(
          module, "LoadStringA",
          [this, choice = std::move(choice)](HINSTANCE library, UINT id, char* buffer, int size) {
            const std::optional<std::string> text = choice(static_cast<int>(id));
            if (!text) return loadString_.original(library, id, buffer, size);
            const int kept = std::min(static_cast<int>(text->size()), size - 1);
            text->copy(buffer, static_cast<std::size_t>(kept));
            buffer[kept] = '\0';
            return kept;
          }) {}

ReplacedTexts::ReplacedTexts(HMODULE module, int id, std::string text)
    : ReplacedTexts(module, [id, text = std::move(text)](int wanted) {
        return wanted == id ? std::optional(text) : std::nullopt;
      }) {}

MessageBoxes::MessageBoxes(HMODULE module, int answer)
    : box_(module, "MessageBoxA",
           [this, answer](HWND owner, const char* text, const char*, UINT type) {
             shown.push_back({owner, text, type & MB_TYPEMASK});
             return answer;
           }) {}

}  // namespace tallow::test
