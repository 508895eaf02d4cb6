// Reads a fallback file from any stream, whether it is whole or damaged. Pure.
#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "fallback/fallback_format.hpp"

namespace tallow::inspect {

// How certain a statement is that is not in the file itself.
enum class Certainty {
  kGiven,   // said on the command line
  kGuess,   // likely, with a reason
  kProved,  // follows from the original data
};

enum class FileState {
  kValid,       // header and sync area are there and make sense
  kForeign,     // does not begin as a fallback file does
  kTruncated,   // ends inside the header or the sync area
  kBadHeader,   // the header holds a block size that the module cannot have written
  kUnreadable,  // the system refuses to read it
};

struct HeaderFields {
  std::uint32_t blockSize = 0;  // bytes
  std::uint8_t signatureFlag = 0;
  std::string pipeName;  // the module's bytes up to the NUL, at most 259
};

// Whether records have no length before their data (Need_Full_Block on). The file does not say so.
struct RecordShape {
  bool fullBlocks = true;
  Certainty certainty = Certainty::kGuess;
  std::string reason;
};

// The number of the block in the first record. The file does not say that either.
struct FirstBlock {
  std::uint64_t blockNo = fallback::kNoBlock;  // kNoBlock: not even a guess
  Certainty certainty = Certainty::kGuess;
  std::string reason;
};

struct FileImage {
  FileState state = FileState::kUnreadable;
  std::string finding;                             // what is wrong, in one line; empty for kValid
  std::uint64_t size = 0;                          // bytes
  std::optional<HeaderFields> header;              // with kValid; else as far as it was read
  std::optional<fallback::SyncPoints> syncPoints;  // with kValid
  std::vector<std::string> oddities;               // what the module would not write, but accepts

  // With kValid. Slots count from 0.
  RecordShape shape;
  FirstBlock first;
  std::uint64_t slotCount = 0;  // whole records
  std::uint64_t tailBytes = 0;  // after them, of an incomplete record
  // How many of the first 1,024 records have a length above the block size. The module cannot
  // deliver these.
  std::uint64_t damagedLengths = 0;

  fallback::RecordLayout layout() const { return {header->blockSize, shape.fullBlocks}; }
  std::uint64_t slotOffset(std::uint64_t slot) const {
    return fallback::kDataStartOffset + slot * layout().recordSize();
  }
};

// What the user knows and the file does not say.
struct Hints {
  std::optional<bool> fullBlocks;
  std::optional<std::uint64_t> firstBlock;
};

// Throws nothing because of the file's content.
FileImage readFallbackFile(std::istream& file, const Hints& hints);

// The length before a slot's data. None with full blocks, or if it cannot be read. If it is above
// the block size, the module cannot deliver the record.
std::optional<std::uint32_t> readRecordLength(std::istream& file, const FileImage& image,
                                              std::uint64_t slot);

// A slot's data, as many bytes as a block has. Shorter if the file ends before.
std::string readRecordData(std::istream& file, const FileImage& image, std::uint64_t slot);

}  // namespace tallow::inspect
