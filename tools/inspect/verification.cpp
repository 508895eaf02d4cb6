#include "inspect/verification.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

#include "fallback/md5.hpp"

namespace tallow::inspect {
namespace {

using fallback::kNoBlock;
using fallback::Md5Context;
using fallback::Md5Digest;

// More blocks or bytes would take too much memory.
constexpr std::uint64_t kMostBlocks = 4'000'000;
constexpr std::size_t kLargestWholeInput = std::size_t{1} << 30;
// Fewer bytes than these occur in many places by chance.
constexpr std::size_t kTellingBytes = 16;

Md5Digest digestOf(std::string_view bytes) {
  Md5Context context{};
  fallback::md5Init(context);
  fallback::md5Update(context, bytes.data(), bytes.size());
  return fallback::md5Final(context);
}

std::uint64_t slotsToVerify(const FileImage& image, Verification& result) {
  if (image.slotCount > kMostBlocks) result.limit = "only the first 4,000,000 slots are looked at";
  return std::min(image.slotCount, kMostBlocks);
}

SyncPointProof compare(const Md5Digest& signature, const Md5Digest& actual) {
  return {signature == actual ? SignatureProof::kMatches : SignatureProof::kDiffers, {}};
}

// The proof of a sync point that needs no data. None if the data is needed.
std::optional<SyncPointProof> withoutData(const FileImage& image, std::size_t index) {
  const fallback::SyncPoint point = (*image.syncPoints)[index];
  if (point.blockNo == kNoBlock) return SyncPointProof{SignatureProof::kNone, "no sync point"};
  if (image.header->signatureFlag == 0) {
    return SyncPointProof{SignatureProof::kNone, "written without signatures"};
  }
  if (point.blockNo == 0) return compare(point.signature, digestOf({}));
  return std::nullopt;
}

// The original data, cut into full blocks that are found by their digests.
class BlockIndex {
 public:
  BlockIndex(std::istream& input, const FileImage& image, Verification& result)
      : blockSize_(image.header->blockSize) {
    Md5Context running{};
    fallback::md5Init(running);
    std::string block(blockSize_, '\0');
    while (input.read(block.data(), static_cast<std::streamsize>(block.size())),
           input.gcount() > 0) {
      const std::string_view bytes(block.data(), static_cast<std::size_t>(input.gcount()));
      fallback::md5Update(running, bytes.data(), bytes.size());
      ++count_;
      lastLength_ = bytes.size();
      if (count_ <= kMostBlocks) blocks_.emplace_back(digestOf(bytes), count_);
      for (std::size_t i = 0; i < 2; ++i) {
        const fallback::SyncPoint point = (*image.syncPoints)[i];
        if (point.blockNo == count_ && !withoutData(image, i)) {
          result.syncPoints[i] = compare(point.signature, fallback::md5OfCopy(running));
        }
      }
    }
    std::sort(blocks_.begin(), blocks_.end());
    if (count_ > kMostBlocks) result.limit = "only the first 4,000,000 blocks are told apart";
  }

  std::uint64_t count() const noexcept { return count_; }

  // The block that has these bytes. If several have them, the one that belongs there, else the one
  // that follows the block before it, else the first.
  std::optional<SlotProof> find(std::string_view slot, std::uint64_t belongs,
                                std::uint64_t follows) const {
    const Md5Digest digest = digestOf(slot);
    for (const std::uint64_t likely : {belongs, follows}) {
      if (isBlock(digest, likely)) return SlotProof{likely, slot.size()};
    }
    const auto first = std::lower_bound(blocks_.begin(), blocks_.end(), Block{digest, 0});
    if (first != blocks_.end() && first->first == digest) {
      return SlotProof{first->second, slot.size()};
    }
    // The last block fills its record only in part.
    if (lastLength_ < slot.size() && isBlock(digestOf(slot.substr(0, lastLength_)), count_)) {
      return SlotProof{count_, lastLength_};
    }
    return std::nullopt;
  }

 private:
  using Block = std::pair<Md5Digest, std::uint64_t>;  // digest, block number

  bool isBlock(const Md5Digest& digest, std::uint64_t blockNo) const {
    return std::binary_search(blocks_.begin(), blocks_.end(), Block{digest, blockNo});
  }

  std::size_t blockSize_;
  std::uint64_t count_ = 0;
  std::size_t lastLength_ = 0;
  std::vector<Block> blocks_;  // sorted, so that equal blocks are together, in their order
};

void verifyFullBlocks(std::istream& file, const FileImage& image, std::istream& input,
                      Verification& result) {
  const BlockIndex index(input, image, result);
  for (std::size_t i = 0; i < 2; ++i) {
    const std::uint64_t blockNo = (*image.syncPoints)[i].blockNo;
    if (!withoutData(image, i) && blockNo > index.count()) {
      result.syncPoints[i] = {SignatureProof::kDiffers, "the data ends before this block"};
    }
  }
  std::uint64_t first = image.first.blockNo;
  std::uint64_t follows = first;
  const std::uint64_t slots = slotsToVerify(image, result);
  for (std::uint64_t slot = 0; slot < slots; ++slot) {
    const auto proof = index.find(readRecordData(file, image, slot), first + slot, follows);
    if (proof && slot == 0) first = proof->blockNo;
    follows = proof ? proof->blockNo + 1 : follows + 1;
    result.slots.push_back(proof);
  }
}

std::optional<std::string> wholeInput(std::istream& input) {
  input.seekg(0, std::ios::end);
  const std::streamoff size = input.tellg();
  if (size < 0 || static_cast<std::uint64_t>(size) > kLargestWholeInput) return std::nullopt;
  std::string data(static_cast<std::size_t>(size), '\0');
  input.clear();
  input.seekg(0);
  input.read(data.data(), static_cast<std::streamsize>(data.size()));
  data.resize(static_cast<std::size_t>(input.gcount()));
  return data;
}

// The valid bytes of a record that begins with its length. None if the record is damaged.
std::optional<std::string> validBytes(std::istream& file, const FileImage& image,
                                      std::uint64_t slot) {
  const auto length = readRecordLength(file, image, slot);
  std::string data = readRecordData(file, image, slot);
  if (!length || *length > data.size()) return std::nullopt;
  data.resize(*length);
  return data;
}

// Finds all occurrences of a text in another in one pass, also those that overlap.
class Search {
 public:
  Search(std::string_view text, std::string_view wanted)
      : text_(text), wanted_(wanted), borders_(wanted.size()) {
    for (std::size_t i = 1; i < wanted_.size(); ++i) {
      borders_[i] = extend(i == 1 ? 0 : borders_[i - 1], wanted_[i]);
    }
  }

  // The offset after the next occurrence. None if there are no more.
  std::optional<std::size_t> next() {
    while (at_ < text_.size()) {
      if (matched_ == wanted_.size()) matched_ = borders_[matched_ - 1];
      matched_ = extend(matched_, text_[at_++]);
      if (matched_ == wanted_.size()) return at_;
    }
    return std::nullopt;
  }

 private:
  // The length of the longest beginning of the wanted text that is found when `character` follows
  // its first `length` characters.
  std::uint32_t extend(std::uint32_t length, char character) const {
    while (length > 0 && wanted_[length] != character) length = borders_[length - 1];
    return wanted_[length] == character ? length + 1 : 0;
  }

  std::string_view text_;
  std::string_view wanted_;
  // For each beginning, the length of the longest shorter one that it ends with.
  std::vector<std::uint32_t> borders_;
  std::uint32_t matched_ = 0;
  std::size_t at_ = 0;
};

// The first record, found in the data where a sync point's signature ends: its block number and the
// offset after it.
struct Anchor {
  std::uint64_t blockNo;
  std::size_t end;
};

std::optional<Anchor> findAnchor(const std::string& data, const std::string& first,
                                 const FileImage& image, Verification& result) {
  if (first.empty()) return std::nullopt;
  Search search(data, first);
  Md5Context running{};
  fallback::md5Init(running);
  std::size_t hashed = 0;
  while (const auto end = search.next()) {
    fallback::md5Update(running, data.data() + hashed, *end - hashed);
    hashed = *end;
    for (const std::size_t i : {std::size_t{1}, std::size_t{0}}) {
      const fallback::SyncPoint point = (*image.syncPoints)[i];
      if (withoutData(image, i) || point.signature != fallback::md5OfCopy(running)) continue;
      result.syncPoints[i] = {SignatureProof::kMatches, {}};
      return Anchor{point.blockNo, *end};
    }
  }
  return std::nullopt;
}

std::uint64_t countDamagedLengths(std::istream& file, const FileImage& image, std::uint64_t from,
                                  std::uint64_t to) {
  std::uint64_t damaged = 0;
  for (std::uint64_t slot = from; slot < to; ++slot) {
    if (readRecordLength(file, image, slot).value_or(0) > image.header->blockSize) ++damaged;
  }
  return damaged;
}

// Follows the records through the data from the first one on. A record that differs is skipped by
// its length. If a later one fits, only the bytes between them are damaged.
void followRecords(std::istream& file, const FileImage& image, const std::string& data,
                   const Anchor& anchor, Verification& result) {
  std::size_t end = anchor.end;
  bool chained = true;  // the record before was found in the data
  std::uint64_t slot = 1;
  for (; slot < result.slots.size(); ++slot) {
    const auto bytes = validBytes(file, image, slot);
    if (!bytes || bytes->size() > data.size() - end) break;
    chained = data.compare(end, bytes->size(), *bytes) == 0 &&
              (chained || bytes->size() >= kTellingBytes);
    end += bytes->size();
    if (chained) result.slots[slot] = SlotProof{anchor.blockNo + slot, bytes->size()};
  }
  result.damagedSlots = countDamagedLengths(file, image, slot, result.slots.size());
}

void verifyOwnLengths(std::istream& file, const FileImage& image, std::istream& input,
                      Verification& result) {
  const auto data = wholeInput(input);
  if (!data) {
    result.limit = "data above 1 GiB cannot be searched for records with lengths of their own";
    return;
  }
  result.slots.resize(slotsToVerify(image, result));
  const auto first = image.slotCount > 0 ? validBytes(file, image, 0) : std::nullopt;
  const auto anchor = first ? findAnchor(*data, *first, image, result) : std::nullopt;
  if (!anchor) {
    result.limit = "no sync point ends with the first record in this data";
    return;
  }
  result.slots[0] = SlotProof{anchor->blockNo, first->size()};
  followRecords(file, image, *data, *anchor, result);
}

// Draws the conclusions from the proofs of all slots.
void judgeSlots(const FileImage& image, Verification& result) {
  const auto& slots = result.slots;
  if (slots.empty()) return;
  result.firstBlock = slots[0] ? slots[0]->blockNo : image.first.blockNo;
  const bool knowsFirst = result.firstBlock != kNoBlock;
  for (std::uint64_t slot = 0; slot < slots.size(); ++slot) {
    if (!slots[slot]) continue;
    result.provedSlots = slot + 1;
    if (knowsFirst && slots[slot]->blockNo == result.firstBlock + slot)
      result.freshSlots = slot + 1;
  }
  for (std::uint64_t slot = 0; slot < result.provedSlots; ++slot) {
    if (result.isDamaged(slot)) ++result.damagedSlots;
  }
}

}  // namespace

bool Verification::isDamaged(std::uint64_t slot) const {
  const auto& proof = slots[slot];
  if (!proof) return slot < provedSlots;
  return slot < freshSlots && proof->blockNo != firstBlock + slot;
}

Verification verify(std::istream& file, const FileImage& image, std::istream& input) {
  Verification result;
  for (std::size_t i = 0; i < 2; ++i) {
    result.syncPoints[i] = withoutData(image, i).value_or(
        SyncPointProof{SignatureProof::kNone, "not found in the data"});
  }
  if (image.shape.fullBlocks) {
    verifyFullBlocks(file, image, input, result);
  } else {
    verifyOwnLengths(file, image, input, result);
  }
  judgeSlots(image, result);
  return result;
}

}  // namespace tallow::inspect
