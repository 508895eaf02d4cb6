#include "common/text.hpp"

#include <windows.h>

#include <array>

#include "common/tool_error.hpp"

namespace tallow::tools {
namespace {

std::wstring widen(UINT codePage, std::string_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  std::wstring wide(
      static_cast<std::size_t>(MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0)),
      L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), length, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string narrow(UINT codePage, std::wstring_view wide, BOOL* lossy) {
  if (wide.empty()) return {};
  const DWORD flags = lossy != nullptr ? WC_NO_BEST_FIT_CHARS : 0;
  const int length = static_cast<int>(wide.size());
  std::string text(static_cast<std::size_t>(WideCharToMultiByte(
                       codePage, flags, wide.data(), length, nullptr, 0, nullptr, nullptr)),
                   '\0');
  WideCharToMultiByte(codePage, flags, wide.data(), length, text.data(),
                      static_cast<int>(text.size()), nullptr, lossy);
  return text;
}

}  // namespace

std::wstring toWide(std::string_view utf8) {
  return widen(CP_UTF8, utf8);
}

std::string toUtf8(std::wstring_view wide) {
  return narrow(CP_UTF8, wide, nullptr);
}

std::string toAnsi(std::string_view utf8) {
  BOOL lossy = FALSE;
  // The system does not report lost characters when the ANSI code page is UTF-8 itself.
  std::string ansi = narrow(CP_ACP, toWide(utf8), GetACP() == CP_UTF8 ? nullptr : &lossy);
  if (lossy) {
    throw ToolError("\"" + std::string(utf8) +
                    "\" has characters that this system's code page cannot spell; use others");
  }
  return ansi;
}

std::string ansiToUtf8(std::string_view ansi) {
  return toUtf8(widen(CP_ACP, ansi));
}

std::string systemErrorText(unsigned long error) {
  std::array<wchar_t, 512> buffer{};
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
      nullptr, error, 0, buffer.data(), static_cast<DWORD>(buffer.size()), nullptr);
  std::string text = toUtf8({buffer.data(), length});
  while (!text.empty() && (text.back() == ' ' || text.back() == '.')) text.pop_back();
  if (text.empty()) text = "system error";
  return text + " (error " + std::to_string(error) + ")";
}

}  // namespace tallow::tools
