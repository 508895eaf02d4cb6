// The system's own MD5, to compare the module's signatures with an implementation that is not ours.
#pragma once

#include <string>
#include <string_view>

namespace tallow::test {

// The 16 bytes of the digest. Throws std::runtime_error if the system has no MD5.
std::string systemMd5(std::string_view data);

}  // namespace tallow::test
