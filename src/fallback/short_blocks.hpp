// The blocks in a fallback file that do not fill their records.
#pragma once

#include <cstdint>
#include <vector>

namespace tallow::fallback {

// With full blocks, a record has no length in the file, so the length of a short block is kept
// here. A writer can end a block early with an empty write, and the host can continue after it with
// SetPos. Takes 16 bytes for each short block of the data area, and nothing for full ones.
class ShortBlocks {
 public:
  // Makes room for one more block. Only this can run out of memory, and then nothing has changed.
  void makeRoom();

  // Notes the length of a block. Room must have been made, and the block must come after all noted
  // ones.
  void add(std::uint64_t blockNo, std::uint32_t length) noexcept;

  void clear() noexcept { blocks_.clear(); }

  // The noted length, or blockSize if there is none.
  std::uint32_t lengthOf(std::uint64_t blockNo, std::uint32_t blockSize) const noexcept;

 private:
  struct Block {
    std::uint64_t number;
    std::uint32_t length;
  };
  std::vector<Block> blocks_;  // in ascending number
};

}  // namespace tallow::fallback
