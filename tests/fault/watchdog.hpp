// Ends the test program when a run hangs or crashes, with the run's name and, for a hang, the calls
// that it stands in.
#pragma once

#include <string>

namespace tallow::test {

// Watches the calling thread from now on: a run that takes longer than `seconds`, or an exception
// that nobody handles, ends the process with a line that names the run.
void startWatchdog(unsigned seconds);

// Notes which run begins now.
void watchRun(const std::string& name);

}  // namespace tallow::test
