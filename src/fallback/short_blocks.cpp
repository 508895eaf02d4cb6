#include "fallback/short_blocks.hpp"

#include <algorithm>

namespace tallow::fallback {

void ShortBlocks::makeRoom() {
  blocks_.emplace_back();
  blocks_.pop_back();
}

void ShortBlocks::add(std::uint64_t blockNo, std::uint32_t length) noexcept {
  blocks_.push_back({blockNo, length});
}

std::uint32_t ShortBlocks::lengthOf(std::uint64_t blockNo, std::uint32_t blockSize) const noexcept {
  const auto found = std::lower_bound(
      blocks_.begin(), blocks_.end(), blockNo,
      [](const Block& block, std::uint64_t number) { return block.number < number; });
  return found != blocks_.end() && found->number == blockNo ? found->length : blockSize;
}

}  // namespace tallow::fallback
