// The system's own MD5, to check the module's signatures against an implementation that is not
// ours.
#pragma once

#include <string>
#include <string_view>

namespace tallow::test {

// The 16 bytes of the digest. Throws std::runtime_error when the system offers none.
std::string systemMd5(std::string_view data);

}  // namespace tallow::test
