#include "inspect/verification.hpp"

#include <algorithm>
#include <functional>
#include <map>
#include <string_view>

#include "fallback/md5.hpp"

namespace tallow::inspect {
namespace {

using fallback::kNoBlock;
using fallback::Md5Context;
using fallback::Md5Digest;

/// More than this would not fit into memory comfortably.
constexpr std::uint64_t kMostBlocks = 4'000'000;
constexpr std::size_t kLargestWholeInput = std::size_t{1} << 30;

Md5Digest digestOf(std::string_view bytes) {
  Md5Context context{};
  fallback::md5Init(context);
  fallback::md5Update(context, bytes.data(), bytes.size());
  return fallback::md5Final(context);
}

std::uint64_t slotsToVerify(const FallbackFile& image, Verification& result) {
  if (image.slotCount > kMostBlocks) result.limit = "only the first 4,000,000 slots are looked at";
  return std::min(image.slotCount, kMostBlocks);
}

SyncPointProof compare(const Md5Digest& signature, const Md5Digest& actual) {
  return {signature == actual ? SignatureProof::kMatches : SignatureProof::kDiffers, {}};
}

/// What can be said of a sync point before any data is read; none when the data must tell.
std::optional<SyncPointProof> withoutData(const FallbackFile& image, std::size_t index) {
  const fallback::SyncPoint point = (*image.syncPoints)[index];
  if (point.blockNo == kNoBlock) return SyncPointProof{SignatureProof::kNone, "no sync point"};
  if (image.header->signatureFlag == 0) {
    return SyncPointProof{SignatureProof::kNone, "written without signatures"};
  }
  if (point.blockNo == 0) return compare(point.signature, digestOf({}));
  return std::nullopt;
}

/// The original data, cut into full blocks and known by their digests.
class BlockIndex {
 public:
  BlockIndex(std::istream& input, const FallbackFile& image, Verification& result)
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
      if (count_ <= kMostBlocks) blocks_.emplace(digestOf(bytes), count_);
      for (std::size_t i = 0; i < 2; ++i) {
        const fallback::SyncPoint point = (*image.syncPoints)[i];
        if (point.blockNo == count_ && !withoutData(image, i)) {
          result.syncPoints[i] = compare(point.signature, fallback::md5OfCopy(running));
        }
      }
    }
    if (count_ > kMostBlocks) result.limit = "only the first 4,000,000 blocks are told apart";
  }

  std::uint64_t count() const noexcept { return count_; }

  /// The block that these bytes are, the expected one if several are alike.
  std::optional<SlotProof> find(std::string_view slot, std::uint64_t expected) const {
    if (const auto found = find(digestOf(slot), expected)) return SlotProof{*found, slot.size()};
    if (lastLength_ == slot.size() || lastLength_ > slot.size()) return std::nullopt;
    // The last block fills its record only in part.
    const auto [from, to] = blocks_.equal_range(digestOf(slot.substr(0, lastLength_)));
    for (auto it = from; it != to; ++it) {
      if (it->second == count_) return SlotProof{count_, lastLength_};
    }
    return std::nullopt;
  }

 private:
  std::optional<std::uint64_t> find(const Md5Digest& digest, std::uint64_t expected) const {
    const auto [from, to] = blocks_.equal_range(digest);
    if (from == to) return std::nullopt;
    const auto hit = std::find_if(from, to, [&](const auto& e) { return e.second == expected; });
    return hit != to ? hit->second : from->second;
  }

  std::size_t blockSize_;
  std::uint64_t count_ = 0;
  std::size_t lastLength_ = 0;
  std::multimap<Md5Digest, std::uint64_t> blocks_;
};

void verifyFullBlocks(std::istream& file, const FallbackFile& image, std::istream& input,
                      Verification& result) {
  const BlockIndex index(input, image, result);
  for (std::size_t i = 0; i < 2; ++i) {
    const std::uint64_t blockNo = (*image.syncPoints)[i].blockNo;
    if (!withoutData(image, i) && blockNo > index.count()) {
      result.syncPoints[i] = {SignatureProof::kDiffers, "the data ends before this block"};
    }
  }
  std::uint64_t expected = image.first.blockNo;
  const std::uint64_t slots = slotsToVerify(image, result);
  for (std::uint64_t slot = 0; slot < slots; ++slot) {
    const auto proof = index.find(readRecordData(file, image, slot), expected);
    expected = proof ? proof->blockNo + 1 : expected + 1;
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

/// The valid bytes of a record that carries its length; none when the record is damaged.
std::optional<std::string> validBytes(std::istream& file, const FallbackFile& image,
                                      std::uint64_t slot) {
  const auto length = readRecordLength(file, image, slot);
  std::string data = readRecordData(file, image, slot);
  if (!length || *length > data.size()) return std::nullopt;
  data.resize(*length);
  return data;
}

/// The first record at the place in the data where a sync point's signature ends: its block
/// number, and the offset behind it.
struct Anchor {
  std::uint64_t blockNo;
  std::size_t end;
};

std::optional<Anchor> findAnchor(const std::string& data, const std::string& first,
                                 const FallbackFile& image, Verification& result) {
  const std::boyer_moore_horspool_searcher searcher(first.begin(), first.end());
  Md5Context running{};
  fallback::md5Init(running);
  std::size_t hashed = 0;
  for (auto at = data.begin(); !first.empty();) {
    at = std::search(at, data.end(), searcher);
    if (at == data.end()) break;
    const auto end = static_cast<std::size_t>(at - data.begin()) + first.size();
    fallback::md5Update(running, data.data() + hashed, end - hashed);
    hashed = end;
    for (const std::size_t i : {std::size_t{1}, std::size_t{0}}) {
      const fallback::SyncPoint point = (*image.syncPoints)[i];
      if (withoutData(image, i) || point.signature != fallback::md5OfCopy(running)) continue;
      result.syncPoints[i] = {SignatureProof::kMatches, {}};
      return Anchor{point.blockNo, end};
    }
    ++at;
  }
  return std::nullopt;
}

void verifyOwnLengths(std::istream& file, const FallbackFile& image, std::istream& input,
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
  std::size_t end = anchor->end;
  for (std::uint64_t slot = 1; slot < result.slots.size(); ++slot) {
    const auto bytes = validBytes(file, image, slot);
    if (!bytes || data->compare(end, bytes->size(), *bytes) != 0) break;
    end += bytes->size();
    result.slots[slot] = SlotProof{anchor->blockNo + slot, bytes->size()};
  }
}

}  // namespace

Verification verify(std::istream& file, const FallbackFile& image, std::istream& input) {
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
  for (const auto& slot : result.slots) {
    const bool follows = slot && (result.freshSlots == 0 ||
                                  slot->blockNo == result.slots[0]->blockNo + result.freshSlots);
    if (!follows) break;
    ++result.freshSlots;
  }
  return result;
}

}  // namespace tallow::inspect
