// Files that belong to the running program.
#pragma once

#include <filesystem>

namespace tallow::tools {

// The file of this name in the folder of the running program.
std::filesystem::path besideProgram(const wchar_t* name);

}  // namespace tallow::tools
