// What a process finds around it. Texts are UTF-8.
#pragma once

#include <string>

namespace tallow::tools {

// What the environment variable holds. Empty if there is none.
std::string environmentValue(const wchar_t* name);

// The path from its drive on. A relative one begins in the working folder.
std::string fullPath(const std::string& path);

}  // namespace tallow::tools
