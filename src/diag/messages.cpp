#include "diag/messages.hpp"

#include <windows.h>

#include <cstdarg>
#include <memory>

#include "diag/bounded_format.hpp"
#include "diag/language_library.hpp"

namespace tallow::diag {
namespace {

struct LocalFreer {
  void operator()(char* memory) const noexcept { LocalFree(memory); }
};

}  // namespace

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

std::string systemErrorText(unsigned long error) {
  char* allocated = nullptr;
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0,
                     reinterpret_cast<char*>(&allocated), 0, nullptr);
  const std::unique_ptr<char, LocalFreer> text(allocated);
  if (length == 0 || !text) raise<MessageId::kNoSystemErrorText>(error);
  return text.get();
}

std::string lastSystemErrorText() {
  return systemErrorText(GetLastError());
}

}  // namespace tallow::diag
