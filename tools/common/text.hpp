// Converts text between the three encodings of a tool: UTF-8 inside, UTF-16 for Windows, and the
// process's ANSI code page for the module.
#pragma once

#include <string>
#include <string_view>

namespace tallow::tools {

std::wstring toWide(std::string_view utf8);
std::string toUtf8(std::wstring_view wide);

// Throws ToolError if a character is not in the ANSI code page.
std::string toAnsi(std::string_view utf8);
std::string ansiToUtf8(std::string_view ansi);

// The system's text for an error number, in one line, with the number: "Access denied (error 5)".
std::string systemErrorText(unsigned long error);

}  // namespace tallow::tools
