// The system's description of its error numbers.
#pragma once

#include <string>

namespace tallow::diag {

// The system's description of a GetLastError number, including the trailing line break. Raises
// message 49 with that number if the system has none.
std::string systemErrorText(unsigned long error);

// The same for the calling thread's last error.
std::string lastSystemErrorText();

}  // namespace tallow::diag
