// What a test borrows from the machine and gives back: folders, names, environment variables. Also
// shows whether the module gives back what it took.
#pragma once

#include <cstddef>
#include <cstdint>
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

// A new empty folder. The destructor deletes it with all its files and folders.
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

// Sets an environment variable or, with nullopt, removes it, until the end of the scope. The
// module's own getenv sees this, since the module and the tests share one run-time library.
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

// The number in an environment variable, if that is set.
std::optional<std::uint64_t> numberFromEnvironment(const char* name);

// Changes the current directory until the end of the scope.
class ScopedCurrentDirectory {
 public:
  explicit ScopedCurrentDirectory(const std::string& path);
  ~ScopedCurrentDirectory();
  ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;

 private:
  std::string before_;
};

// What this process holds now.
std::size_t openHandles();
std::size_t heapBlocks();
std::size_t heapBytes();
std::size_t workingSet();  // bytes

// By how much the working set may grow in this many cycles. The system counts in pages and a little
// late, but if each cycle keeps anything, pages add up sooner or later.
constexpr std::size_t workingSetGrowthIn(int cycles) {
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kCyclesToAPage = 4;
  return static_cast<std::size_t>(cycles) / kCyclesToAPage * kPage;
}

}  // namespace tallow::test
