// Names of the module's requests and return codes.
#pragma once

#include <cstdint>
#include <string_view>

namespace tallow::client {

// "pmrcBadPosition" for 32; "unknown return code" for a number that the interface does not define.
std::string_view returnCodeName(std::uint32_t code);

// "SetPos" for 7.
std::string_view requestName(std::uint32_t code);

}  // namespace tallow::client
