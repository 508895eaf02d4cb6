// The host's side of the interface: one loaded module, its requests as functions.
//
// Every call must come from the thread that constructed the Module. Texts are passed to the module
// byte for byte, so the caller decides on their encoding. Texts that come back are the module's own
// bytes.
#pragma once

#include <tallow/tallow.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace tallow::client {

// The library at this path cannot serve as the module. The text says why and what to do.
class ModuleNotUsable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The module answered a request with a return code other than success.
class RequestFailed : public std::runtime_error {
 public:
  RequestFailed(std::uint32_t request, std::uint32_t code, std::string failureText);

  std::uint32_t request() const noexcept { return request_; }
  std::uint32_t code() const noexcept { return code_; }
  // The module's text, in its encoding. Empty unless the code is pmrcFailed.
  const std::string& failureText() const noexcept { return failureText_; }

 private:
  std::uint32_t request_;
  std::uint32_t code_;
  std::string failureText_;
};

struct ComponentVersion {
  std::string name;
  std::string version;
};

// The module's answer to ID.
struct Identity {
  std::string name;
  std::string version;
  std::vector<ComponentVersion> components;
};

// Outcome of a Read that did not fail: code is pmrcSuccess or pmrcEOF (then length is 0).
struct ReadResult {
  std::uint32_t code = pmrcSuccess;
  std::uint32_t length = 0;

  bool atEnd() const noexcept { return code == pmrcEOF; }
};

// An open pipe. Must not outlive its Module. The destructor sends Close if it has not been closed.
class Instance {
 public:
  Instance(Instance&& other) noexcept;
  Instance& operator=(Instance&&) = delete;
  ~Instance();

  // The size of Read's buffer, in bytes.
  std::uint32_t blockSize() const noexcept { return blockSize_; }

  // `buffer` must hold blockSize() bytes. Throws RequestFailed for any code but success and EOF.
  ReadResult read(std::span<std::byte> buffer);
  // Takes a checkpoint. Returns the number of the last delivered block.
  std::uint64_t getPos();
  void setPos(std::uint64_t position);
  void close();
  void closeR();
  // Leaves the instance to the module, which destroys it when it is unloaded and keeps the
  // fallback file in any case.
  void abandon() noexcept { handle_ = nullptr; }

 private:
  friend class Module;
  Instance(TallowPIDMMain entry, void* handle, std::uint32_t blockSize) noexcept
      : entry_(entry), handle_(handle), blockSize_(blockSize) {}
  void close(std::uint32_t request);

  TallowPIDMMain entry_;
  void* handle_;
  std::uint32_t blockSize_;
};

// A loaded module. The destructor unloads it.
class Module {
 public:
  // tallowin.dll in the folder of the running program.
  static std::filesystem::path besideProgram();

  // Throws ModuleNotUsable.
  explicit Module(const std::filesystem::path& path);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  Identity identify();
  // Sends Init. Returns the module handle, which is valid as long as this object.
  void* init(std::string initString, const std::string& moduleName);
  void setAttribute(void* moduleHandle, const std::string& name, const std::string& value);
  Instance open(void* moduleHandle, const std::string& pipeName);
  void shut();

 private:
  struct Unload {
    void operator()(void* library) const noexcept;
  };
  std::unique_ptr<void, Unload> library_;
  TallowPIDMMain entry_ = nullptr;
};

}  // namespace tallow::client
