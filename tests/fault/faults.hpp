// The ways in which the functions that the module imports can fail.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tallow::test {

// Which failures of a request a fault may cause.
enum class FaultKind {
  kFile,     // of the fallback file or the log: Open, a live Read and Close never show it
  kPipe,     // of the pipe itself
  kReading,  // like kPipe, and bytes may be lost with the refused Read
  kAny       // memory, texts, the environment: any request may fail
};

// One way in which one imported function fails.
struct Fault {
  std::string function;  // as the import table names it
  std::string failure;   // what the failing call does
  FaultKind kind;
  std::size_t most;   // the most failures in a row, for calls that are repeated until they succeed
  void* replacement;  // asks faultSchedule() at each call
  void** original;    // what stood in the import table; the replacement calls it
};

const std::vector<Fault>& faults();

// Installs a fault in a module that is about to be initialised. Does nothing if the module does not
// import the function.
void installFault(HMODULE module, const Fault& fault);

}  // namespace tallow::test
