// The blocks in a fallback file that have fewer bytes than their records have room for.
#pragma once

#include <cstdint>
#include <vector>

namespace tallow::fallback {

// A record of full blocks has no length in the file, so the length of a short block is kept here: a
// writer can end a block early with an empty write, and the host can continue after it with SetPos.
// Takes 16 bytes for each short block of the data area, and nothing for full ones.
class ShortBlocks {
 public:
  // Makes room for one more note. All that can run out of memory; changes nothing then.
  void makeRoom();

  // Notes the length of a block, for which room was made and which follows all that were noted.
  void add(std::uint64_t blockNo, std::uint32_t length) noexcept;

  void clear() noexcept { blocks_.clear(); }

  // The length that was noted, else blockSize.
  std::uint32_t lengthOf(std::uint64_t blockNo, std::uint32_t blockSize) const noexcept;

 private:
  struct Block {
    std::uint64_t number;
    std::uint32_t length;
  };
  std::vector<Block> blocks_;  // in ascending number
};

}  // namespace tallow::fallback
