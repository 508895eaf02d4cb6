// The language library, from which every numbered message is loaded.
#pragma once

#include <windows.h>

#include <string>

namespace tallow::diag {

// Maps the library of the thread's language, of the language's default sublanguage or of English,
// in this order: beside the module first, then wherever the system looks. If none is found, a
// message box lists the attempts and the result is false.
bool loadLanguageLibrary(const std::wstring& modulePath);

void freeLanguageLibrary() noexcept;

// Null until loadLanguageLibrary has succeeded. Owned by this file.
HMODULE languageLibrary() noexcept;

// The file of the mapped library: a full path, or a bare name where the system has found it.
std::wstring languageLibraryPath(const std::wstring& modulePath);

}  // namespace tallow::diag
