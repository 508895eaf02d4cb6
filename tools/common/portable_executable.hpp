// A look at a library's file header, to say plainly why it could not be loaded.
#pragma once

#include <filesystem>
#include <string>

namespace tallow::tools {

// Empty if the file looks like a 64-bit DLL, else what is wrong, in words that follow its name:
// "does not exist", "is not a DLL", "is not for 64-bit Windows", ...
std::string libraryFault(const std::filesystem::path& path);

}  // namespace tallow::tools
