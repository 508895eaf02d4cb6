// Compares a fallback file with the data that the job was to deliver. Pure.
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
  kDiffers,  // the data has another signature
};

struct SyncPointProof {
  SignatureProof signature = SignatureProof::kNone;
  std::string reason;
};

// A record that holds a block of the original data.
struct SlotProof {
  std::uint64_t blockNo = 0;
  std::uint64_t length = 0;  // valid bytes
};

struct Verification {
  std::array<SyncPointProof, 2> syncPoints;       // older, newer
  std::vector<std::optional<SlotProof>> slots;    // none: holds no block of the data
  std::uint64_t firstBlock = fallback::kNoBlock;  // in slot 0, if freshSlots is not 0
  // The slots up to the last one that holds the block that belongs there. They were written since
  // the checkpoint.
  std::uint64_t freshSlots = 0;
  std::uint64_t provedSlots = 0;   // up to the last slot that holds a block of the data
  std::uint64_t damagedSlots = 0;  // see isDamaged
  std::string limit;               // why less could be proved than asked for; empty if nothing is

  // Whether the slot does not hold what it must: it is fresh and holds another block, or it holds
  // no block of the data although a later slot does.
  bool isDamaged(std::uint64_t slot) const;
  // The slots at the end that hold no block of the data. They may hold other data of an earlier
  // job, so this alone does not prove damage.
  std::uint64_t unknownSlots() const { return slots.size() - provedSlots; }
};

// `input` is the job's whole data. With full blocks it is cut by the block size. Otherwise it is
// cut by the records' own lengths, and only the run of records that begins at a sync point can be
// proved.
Verification verify(std::istream& file, const FileImage& image, std::istream& input);

}  // namespace tallow::inspect
