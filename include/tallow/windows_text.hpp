// Text for the module from UTF-16, and a failed call of the system as an exception.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace tallow {

namespace detail {

inline std::string encode(const std::wstring& text, UINT codePage, DWORD flags, BOOL* replaced) {
  const int size = static_cast<int>(text.size());
  const int room =
      WideCharToMultiByte(codePage, flags, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string encoded(static_cast<std::size_t>(room), '\0');
  WideCharToMultiByte(codePage, flags, text.data(), size, encoded.data(), room, nullptr, replaced);
  return encoded;
}

// The text in the code page of the process, for messages. Characters that it lacks are replaced.
inline std::string forMessage(const std::wstring& text) {
  return encode(text, CP_ACP, 0, nullptr);
}

inline std::string describe(const std::string& what, DWORD error) {
  char text[512] = "";
  const DWORD length =
      FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0,
                     static_cast<char*>(text), sizeof text, nullptr);
  const std::string reason(static_cast<const char*>(text), length);
  return what + ": error " + std::to_string(error) + ", " +
         reason.substr(0, reason.find_last_not_of(" \r\n") + 1);
}

}  // namespace detail

// A call of the system failed. what() is in the code page of the process.
class SystemError : public std::runtime_error {
 public:
  SystemError(const std::string& what, DWORD code)
      : std::runtime_error(detail::describe(what, code)), code_(code) {}

  DWORD code() const noexcept { return code_; }  // as GetLastError gave it

 private:
  DWORD code_;
};

// UTF-16 in the code page of the process, which is what the module reads in the initialisation
// string, in a pipe's name and in attributes. Throws SystemError if the code page lacks a
// character: another one in its place would name another file or pipe.
inline std::string narrow(const std::wstring& text) {
  BOOL replaced = FALSE;
  // A process may have UTF-8 as its code page. The conversion then allows neither the flag nor the
  // question whether a character was replaced.
  const bool isUtf8 = GetACP() == CP_UTF8;
  const std::string encoded =
      detail::encode(text, CP_ACP, isUtf8 ? 0 : WC_NO_BEST_FIT_CHARS, isUtf8 ? nullptr : &replaced);
  if (replaced) {
    throw SystemError("\"" + detail::forMessage(text) + "\" does not fit the system's code page",
                      ERROR_NO_UNICODE_TRANSLATION);
  }
  return encoded;
}

// UTF-16 in UTF-8: for a pipe's name with characters that the code page lacks. The attribute
// CHARSET_NAME must then be set to UTF8 before Open.
inline std::string utf8(const std::wstring& text) {
  return detail::encode(text, CP_UTF8, 0, nullptr);
}

}  // namespace tallow
