// Where the connection string comes from.
#pragma once

#include <string>

namespace tallow::load {

/// The string that is given; else the line in the file; else what TALLOW_TO holds. Only the first
/// is seen by whoever lists the system's processes. Throws MisuseError when there is none.
std::string connectionFrom(const std::string& given, const std::string& file);

}  // namespace tallow::load
