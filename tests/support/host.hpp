// The host's side of the interface, byte by byte: every block ends at a guard page, and after each
// request every byte that the module may not write is compared with its old value. A byte that was
// changed against the rules is a test failure by itself.
#pragma once

#include <tallow/tallow.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/guarded_memory.hpp"

namespace tallow::test {

// tallowin.dll beside the test program.
std::string modulePath();

// The module, loaded as long as the object exists; only one at a time. Throws std::runtime_error
// (with the system error number) if it cannot be loaded. Requests must come from the thread that
// made it.
class Module {
 public:
  explicit Module(const std::string& path = modulePath());
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  HMODULE handle() const { return handle_; }
  TallowPIDMMain entry() const { return entry_; }

 private:
  HMODULE handle_;
  TallowPIDMMain entry_ = nullptr;
};

struct Answer {
  std::uint32_t code = 0;
  // The failure text in the message area and its reported length, if the module wrote those fields.
  std::optional<std::string> text;
  std::uint32_t textLength = 0;
  char* textAddress = nullptr;
};

struct ReadAnswer : Answer {
  std::string data;
};

struct PositionAnswer : Answer {
  std::uint64_t position = 0;
  const std::uint64_t* address = nullptr;  // null if the module did not write the field
};

struct IdAnswer : Answer {
  std::string name;
  std::string version;
  const TallowComponentVersion* components = nullptr;
};

// What Init gets in addition to the initialisation string.
struct InitInput {
  std::uint16_t level1 = TALLOW_INTERFACE_LEVEL_1;
  std::uint16_t level2 = TALLOW_INTERFACE_LEVEL_2;
  std::string moduleName = "tallow tests";
  bool nullString = false;  // the address of the string is null
};

// Requests to a module. The handles from Init and Open are kept for the requests after them; a test
// may replace them.
class Host {
 public:
  explicit Host(const Module& module) : entry_(module.entry()) {}

  Answer init(std::string_view options, const InitInput& input = {});
  // Uses openMode 1 by default.
  Answer open(std::string_view pipeName, std::int16_t openMode = TALLOW_OPEN_FOR_READING);
  ReadAnswer read();
  PositionAnswer getPos();
  Answer setPos(std::uint64_t position, std::uint32_t length = TALLOW_POSITION_SIZE);
  Answer setPosToNull();
  Answer close() { return close(pmiPIDMOptClose); }
  Answer closeR() { return close(pmiPIDMOptCloseR); }
  IdAnswer id();
  Answer attribute(std::string_view name, std::string_view value,
                   std::uint32_t request = pmiPIDMOptPutA_A);
  // Any request code, with a parameter block (or null) that the module must not change.
  Answer request(std::uint32_t code, GuardedMemory* parameters);

  void* moduleHandle = nullptr;
  void* instance = nullptr;
  std::uint32_t blockSize = 0;      // from the last Open
  std::uint16_t wordAfterMode = 0;  // as the last Open left it (0xeeee when not written)
  void* moduleHandleAfterOpen = nullptr;

 private:
  Answer call(std::uint32_t code, void* parameters);
  Answer close(std::uint32_t code);
  Answer setPos(void* position, std::uint32_t length);
  GuardedMemory& readBuffer();

  TallowPIDMMain entry_;
  std::unique_ptr<GuardedMemory> readBuffer_;
};

}  // namespace tallow::test
