// Who may open a pipe that tallow-feed makes.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

namespace tallow::feed {

/// Reading for this process's own account and for one other, and nothing for anybody else.
class PipeRights {
 public:
  /// `other` is the name of an account or a group, DOMAIN\NAME included, or empty. Throws
  /// MisuseError when the system knows no such name.
  explicit PipeRights(const std::string& other);

  /// For CreateNamedPipe; valid as long as this object.
  SECURITY_ATTRIBUTES* get() noexcept { return &attributes_; }

 private:
  struct Free {
    void operator()(void* memory) const noexcept { LocalFree(memory); }
  };
  std::unique_ptr<void, Free> descriptor_;
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace tallow::feed
