#pragma once

namespace tallow::entry {

/// Gives back everything that the run-time library holds per thread, for all threads. The last
/// thing done at unload: nothing may be thrown afterwards.
void releaseThreadLayer() noexcept;

}  // namespace tallow::entry
