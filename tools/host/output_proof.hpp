// Proves that an output file belongs to the state that counts its bytes.
#pragma once

#include <cstdint>
#include <string>

namespace tallow::host {

struct OutputProof {
  std::string file;  // which file it is for the system, whatever its name and its content
  std::string end;   // MD5 of the last bytes, at most 4096, that the state counts
};

// The proof of the first `length` bytes of the file. Throws ToolError if it cannot be read or is
// shorter.
OutputProof proofOf(const std::string& path, std::uint64_t length);

}  // namespace tallow::host
