// Files as the tests look at them.
#pragma once

#include <string>
#include <string_view>

namespace tallow::test {

bool exists(const std::string& path);

// All bytes of a file; none if there is no such file.
std::string contentOf(const std::string& path);

// Writes a file anew. Throws std::runtime_error if that fails.
void putFile(const std::string& path, std::string_view bytes);

}  // namespace tallow::test
