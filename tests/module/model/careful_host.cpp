#include "module/model/careful_host.hpp"

#include <algorithm>

namespace tallow::test {

void CarefulHost::startOver() {
  blocks_.clear();
  noted_.clear();
  hasBegun_ = isSure_ = true;
}

void CarefulHost::read(const std::string& block) {
  if (!hasBegun_) startOver();
  blocks_.push_back(block);
}

void CarefulHost::getPos(std::uint64_t position) {
  if (!hasBegun_) startOver();
  noted_.insert(position);
}

void CarefulHost::setPos(std::uint64_t position, bool checked) {
  if (position == 0 && !hasBegun_) {
    startOver();
    return;
  }
  if (position != 0 && !noted_.contains(position)) isSure_ = false;
  const std::uint64_t kept = position == 0 ? 0 : position - 1;
  if (kept <= blocks_.size()) blocks_.resize(kept);
  if (!hasBegun_ && (!checked || hasShortBlocks())) isSure_ = false;
  hasBegun_ = true;
  noted_.erase(noted_.upper_bound(position), noted_.end());
}

bool CarefulHost::hasShortBlocks() const {
  return std::any_of(blocks_.begin(), blocks_.end(),
                     [this](const std::string& block) { return block.size() < blockSize_; });
}

bool CarefulHost::holds(const std::string& sent) const {
  if (!isSure_) return true;
  std::string all;
  for (const std::string& block : blocks_) all += block;
  return sent.starts_with(all);
}

}  // namespace tallow::test
