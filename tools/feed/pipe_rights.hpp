// Who may open a pipe that tallow-feed makes.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

namespace tallow::feed {

// Rights that let this process's account, and one other, read a pipe, and let nobody else do
// anything.
class PipeRights {
 public:
  // `other` is the name of an account or a group, which may be written DOMAIN\NAME, or empty.
  // Throws MisuseError if the system does not know the name.
  explicit PipeRights(const std::string& other);

  // For CreateNamedPipe; valid as long as this object.
  SECURITY_ATTRIBUTES* get() noexcept { return &attributes_; }

 private:
  struct Free {
    void operator()(void* memory) const noexcept { LocalFree(memory); }
  };
  std::unique_ptr<void, Free> descriptor_;
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace tallow::feed
