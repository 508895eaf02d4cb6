#include "config/directory_state.hpp"

#include <io.h>
#include <sys/stat.h>

namespace tallow::config {

DirectoryState directoryState(const char* path) {
  constexpr int kWritePermission = 2;
  struct _stat64i32 status = {};
  if (_stat64i32(path, &status) != 0 || (status.st_mode & _S_IFDIR) == 0) {
    return DirectoryState::kNoDirectory;
  }
  return _access(path, kWritePermission) == 0 ? DirectoryState::kUsable
                                              : DirectoryState::kNotWritable;
}

}  // namespace tallow::config
