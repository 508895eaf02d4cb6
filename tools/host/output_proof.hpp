// What ties an output file to the state that counts its bytes.
#pragma once

#include <cstdint>
#include <string>

namespace tallow::host {

struct OutputProof {
  std::string file;  // which file of the system's it is, whatever its name; not its content
  std::string end;   // MD5 of the last bytes, 4096 at most, of those that the state counts
};

/// Of the first `length` bytes of the file. Throws ToolError when it cannot be read or is shorter.
OutputProof proofOf(const std::string& path, std::uint64_t length);

}  // namespace tallow::host
