#include "module/model/aftermath.hpp"

#include <algorithm>

#include "support/system_md5.hpp"

namespace tallow::test {
namespace {

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kEof = 9;
constexpr std::uint32_t kReportFailed = 12;
constexpr std::uint32_t kDelivery = 16;
constexpr std::uint32_t kBadPosition = 32;
constexpr std::uint32_t kFailed = 34;

bool isFailure(std::uint32_t code) {
  return code == kFailed || code == kReportFailed;
}

std::string answered(std::uint32_t code) {
  return "answered " + std::to_string(code);
}

}  // namespace

Aftermath::Aftermath(const JobModel& before, const std::optional<std::string>& fileBefore)
    : options_(before.options()),
      header_(before.headerImage()),
      hasSignatures_(before.hasSignatures()),
      before_(fileBefore),
      blocks_(before.blocks()),
      places_{{before.lastBlockNo(), before.nextBlockNo()}},
      lost_(before.isLost()),
      hole_(before.hasHole()),
      ended_(before.hasEnded()),
      endTold_(before.hasToldTheEnd()),
      hadFile_(fileBefore.has_value()) {}

std::string Aftermath::read(std::uint32_t code, const std::string& data, const PipeTake& take,
                            bool struck) {
  checkpoint_.reset();
  if (lost_ || hole_) {
    if (code == kDelivery || (struck && isFailure(code))) return {};
    return "Read of a stream that is lost " + answered(code);
  }
  ended_ = ended_ || take.ended;
  if (code == kDone) return deliver(data, take);
  if (code == kEof) {
    endTold_ = true;
    return ended_ && take.data.empty() ? "" : "Read reported an end that there is not";
  }
  hole_ = !take.data.empty();
  return code == kDelivery || isFailure(code) ? "" : "Read " + answered(code);
}

std::string Aftermath::deliver(const std::string& data, const PipeTake& take) {
  const bool isNew = !take.data.empty();
  if (isNew) blocks_.push_back({take.data, !take.broken});
  std::erase_if(places_, [&](const Place& place) {
    const bool isLatest = place.next == blocks_.size();
    return place.next > blocks_.size() || (isNew && !isLatest) ||
           blocks_[place.next - 1].data != data;
  });
  for (Place& place : places_) place.last = place.next++;
  return places_.empty() ? "Read delivered what is not the data at its place" : "";
}

std::string Aftermath::getPos(std::uint32_t code, std::uint64_t position, bool struck) {
  checkpoint_.reset();
  if (lost_) {
    if (code == kDelivery || (struck && isFailure(code))) return {};
    return "GetPos of a stream that is lost " + answered(code);
  }
  if (code != kDone) return isFailure(code) ? "" : "GetPos " + answered(code);
  std::erase_if(places_, [&](const Place& place) { return place.last != position; });
  if (places_.empty()) return "GetPos answered block " + std::to_string(position);
  if (!struck) checkpoint_ = position;
  return {};
}

std::string Aftermath::setPos(std::uint32_t code, std::uint64_t position, const PipeTake& take,
                              bool struck) {
  checkpoint_.reset();
  if (lost_ || hole_) {
    if (code == kDelivery || (struck && isFailure(code))) return {};
    return "SetPos in a stream that is lost " + answered(code);
  }
  ended_ = take.ended;
  endTold_ = false;
  if (code == kDone) return accept(position, take);
  lost_ = take.asked;
  if (isFailure(code)) {
    // It may have failed after it had moved there.
    if (position <= blocks_.size()) {
      places_.push_back({position, std::max<std::uint64_t>(position, 1)});
    }
    if (position == 0 && !blocks_.empty()) places_.push_back({1, 1});
    return {};
  }
  return code == kDelivery || code == kBadPosition ? "" : "SetPos " + answered(code);
}

std::string Aftermath::accept(std::uint64_t position, const PipeTake& take) {
  if (!take.data.empty()) {  // the data is sent again
    blocks_.clear();
    for (std::string_view rest = take.data; !rest.empty();) {
      const std::size_t size = std::min(options_.blockSize, rest.size());
      blocks_.push_back({std::string(rest.substr(0, size)), true});
      rest.remove_prefix(size);
    }
    blocks_.back().hashed = !take.broken;
    if (blocks_.size() != position) return "SetPos took another block for that of its position";
  }
  if (position > blocks_.size()) return "SetPos went to a block that was never delivered";
  const std::uint64_t block = position == 0 && !blocks_.empty() ? 1 : position;
  places_ = {{block, std::max<std::uint64_t>(block, 1)}};
  return {};
}

std::string Aftermath::close(std::uint32_t code, bool struck) {
  checkpoint_.reset();
  isClosed_ = true;
  return code == kDone || (struck && isFailure(code)) ? "" : "Close " + answered(code);
}

std::string Aftermath::file(const std::optional<std::string>& bytes) {
  std::string problem;
  if (!bytes) {
    problem = noFile();
  } else if (bytes != before_ || checkpoint_) {
    problem = content(*bytes);
  }
  hadFile_ = bytes.has_value();
  return problem;
}

std::string Aftermath::noFile() const {
  if (checkpoint_ && !options_.noFallback) return "a checkpoint left no file";
  return isClosed_ && hadFile_ && !endTold_ ? "Close removed it before the end" : "";
}

std::string Aftermath::content(const std::string& bytes) const {
  if (bytes.substr(0, kHeaderSize) != header_) return "its header differs";
  if (bytes.size() == kHeaderSize) return checkpoint_ ? "it has no sync area" : "";
  if (bytes.size() < kDataStart) return "its sync area is cut";
  for (const std::size_t at : {kOlderSyncPoint, kNewerSyncPoint}) {
    const std::string problem = syncPoint(bytes.substr(at, kSyncPointSize));
    if (!problem.empty()) return problem;
  }
  if (checkpoint_ && numberOf64(bytes.substr(kNewerSyncPoint)) != *checkpoint_) {
    return "it lacks the sync point of the checkpoint";
  }
  const std::size_t size = options_.blockSize + (options_.fullBlocks ? 0 : 4);
  for (std::size_t at = kDataStart; at < bytes.size(); at += size) {
    const std::string slot = bytes.substr(at, size);
    const bool isOld = before_ && at < before_->size() && before_->substr(at, size) == slot;
    const std::string problem = isOld ? "" : record(slot);
    if (!problem.empty()) return "at " + std::to_string(at) + ": " + problem;
  }
  return {};
}

std::string Aftermath::syncPoint(std::string_view bytes) const {
  if (before_ && before_->size() >= kDataStart) {
    for (const std::size_t at : {kOlderSyncPoint, kNewerSyncPoint}) {
      if (before_->substr(at, kSyncPointSize) == bytes) return {};
    }
  }
  const std::uint64_t block = numberOf64(bytes);
  const std::string_view signature = bytes.substr(8);
  const bool isSigned = hasSignatures_ && block != kNoBlock;
  if (block != kNoBlock && block > blocks_.size()) {
    return "its sync point for block " + std::to_string(block) + " is not the job's";
  }
  if (signature == (isSigned ? signatureOf(block) : std::string(16, '\0'))) return {};
  return "the signature of its sync point for block " + std::to_string(block) + " is wrong";
}

std::string Aftermath::record(std::string_view slot) const {
  std::string_view data = slot;
  std::optional<std::size_t> length;
  if (!options_.fullBlocks) {
    if (slot.size() < 4) return "a record that is cut short";
    length = numberOf32(slot);
    data.remove_prefix(4);
  }
  if (data.size() != options_.blockSize) return "a record that is cut short";
  const bool isKnown = std::any_of(blocks_.begin(), blocks_.end(), [&](const auto& block) {
    return data.starts_with(block.data) && (!length || *length == block.data.size());
  });
  return isKnown ? "" : "a record that is none of the job's blocks";
}

std::string Aftermath::signatureOf(std::uint64_t block) const {
  std::string all;
  for (std::uint64_t i = 0; i < block; ++i) {
    if (blocks_[i].hashed) all += blocks_[i].data;
  }
  return systemMd5(all);
}

}  // namespace tallow::test
