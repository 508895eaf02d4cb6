// What only the disk can tell about the options that name a directory.
#pragma once

namespace tallow::config {

enum class DirectoryState { kUsable, kNoDirectory, kNotWritable };

// Asks the C run-time library; the path is in the process's code page. A path with a separator at
// its end is no directory, unless it is a drive's root.
DirectoryState directoryState(const char* path);

}  // namespace tallow::config
