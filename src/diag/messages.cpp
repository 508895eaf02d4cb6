#include "diag/messages.hpp"

#include <windows.h>

#include <cstdarg>

#include "diag/bounded_format.hpp"
#include "diag/language_library.hpp"

namespace tallow::diag {

bool loadMessage(MessageId id, std::string& text) {
  constexpr std::size_t kUsualSize = 512;
  constexpr std::size_t kLongest = 65536;  // no string of a resource is longer
  for (std::size_t size = kUsualSize;; size *= 4) {
    text.assign(size, '\0');
    const int length = LoadStringA(languageLibrary(), static_cast<UINT>(id), text.data(),
                                   static_cast<int>(text.size()));
    const auto kept = static_cast<std::size_t>(length > 0 ? length : 0);
    if (kept + 1 < size || size >= kLongest) {
      text.resize(kept);
      return kept != 0;
    }
  }
}

std::string formatLoadedMessage(MessageId id, ...) {
  std::string format;
  loadMessage(id, format);
  std::va_list arguments;
  va_start(arguments, id);
  std::string text = formatGrowing(format.c_str(), arguments);
  va_end(arguments);
  return text;
}

}  // namespace tallow::diag
