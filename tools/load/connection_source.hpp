// Where the connection string comes from.
#pragma once

#include <string>

namespace tallow::load {

// The string that is given, else the line in the file, else what TALLOW_TO holds. Who lists the
// system's processes can see only the first. Throws MisuseError if there is none.
std::string connectionFrom(const std::string& given, const std::string& file);

}  // namespace tallow::load
