// The system's description of its error numbers.
#pragma once

#include <string>

namespace tallow::diag {

// The description of a GetLastError number as the system words it, trailing line break included.
// Raises message 49 with that number when the system has none.
std::string systemErrorText(unsigned long error);

// The same for the calling thread's last error.
std::string lastSystemErrorText();

}  // namespace tallow::diag
