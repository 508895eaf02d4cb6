#include "diag/system_error.hpp"

#include <windows.h>

#include <memory>

#include "diag/messages.hpp"

namespace tallow::diag {

namespace {

struct LocalFreer {
  void operator()(char* memory) const noexcept { LocalFree(memory); }
};

}  // namespace

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
