// Holds a fallback file against the data that the job was to deliver. Pure.
#pragma once

#include <array>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "inspect/fallback_reader.hpp"

namespace tallow::inspect {

enum class SignatureProof {
  kNone,     // there is nothing to prove, or it cannot be decided; see the reason
  kMatches,  // the data up to the block has this signature
  kDiffers,  // it has another
};

struct SyncPointProof {
  SignatureProof signature = SignatureProof::kNone;
  std::string reason;
};

/// A record whose bytes are those of a block of the original data.
struct SlotProof {
  std::uint64_t blockNo = 0;
  std::uint64_t length = 0;  // valid bytes
};

struct Verification {
  std::array<SyncPointProof, 2> syncPoints;     // older, newer
  std::vector<std::optional<SlotProof>> slots;  // none: holds no block of the data
  std::uint64_t freshSlots = 0;                 // that follow one another from the first slot on
  std::string limit;  // why less could be proved than asked for; empty if nothing is
};

/// `input` is the job's whole data. With full blocks its blocks are cut by the block size;
/// otherwise the records' own lengths are used, and only the run of records that begins at a sync
/// point can be proved.
Verification verify(std::istream& file, const FallbackFile& image, std::istream& input);

}  // namespace tallow::inspect
