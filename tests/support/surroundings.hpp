// What a test borrows from the machine and gives back: folders, names, environment variables, and
// the means to see whether the module gives back what it took.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tallow::test {

// The folder that holds the running test program, and the module and language libraries under test.
std::string programDirectory();

// `stem`, the process id and a number that grows with each call.
std::string uniqueName(std::string_view stem);

// \\.\pipe\ and a unique name.
std::string uniquePipeName();

// A new empty folder that is deleted with all its files and folders at the end.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string file(std::string_view name) const;
  void removeFiles() const;

 private:
  std::string path_;
};

// An environment variable as the module's own getenv sees it (module and tests share one run-time
// library), set or, with nullopt, removed until the end of the scope.
class ScopedEnvironment {
 public:
  ScopedEnvironment(std::string name, const std::optional<std::string>& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::optional<std::string> before_;
};

// The current directory until the end of the scope.
class ScopedCurrentDirectory {
 public:
  explicit ScopedCurrentDirectory(const std::string& path);
  ~ScopedCurrentDirectory();
  ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;

 private:
  std::string before_;
};

// What this process holds at the moment.
std::size_t openHandles();
std::size_t heapBlocks();
std::size_t heapBytes();
std::size_t workingSet();  // bytes

// What the working set may grow by in that many cycles: the system counts in pages and a little
// late, while a cycle that keeps anything of its own keeps a page sooner or later.
constexpr std::size_t workingSetGrowthIn(int cycles) {
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kCyclesToAPage = 4;
  return static_cast<std::size_t>(cycles) / kCyclesToAPage * kPage;
}

}  // namespace tallow::test
