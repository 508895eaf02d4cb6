// Ends the test program if a run hangs or crashes, and shows the run's name and, for a hang, the
// calls that it is in.
#pragma once

#include <string>

namespace tallow::test {

// Watches the calling thread from now on. A run that takes longer than `seconds`, or an unhandled
// exception, ends the process with a line that names the run.
void startWatchdog(unsigned seconds);

// Notes that this run begins now.
void watchRun(const std::string& name);

}  // namespace tallow::test
