// Text between the three encodings that meet in a tool: UTF-8 inside, UTF-16 towards Windows, the
// process's ANSI code page towards the module.
#pragma once

#include <string>
#include <string_view>

namespace tallow::tools {

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

/// Throws ToolError when the ANSI code page has no such character.
std::string toAnsi(std::string_view utf8);
std::string ansiToUtf8(std::string_view ansi);

/// The system's text for an error number, in one line, with the number: "Access denied (error 5)".
std::string systemErrorText(unsigned long error);

}  // namespace tallow::tools
