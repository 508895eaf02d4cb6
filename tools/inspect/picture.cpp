#include "inspect/picture.hpp"

#include <algorithm>
#include <string_view>

namespace tallow::inspect {
namespace {

constexpr std::uint64_t kMostLetters = 56;

constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kGreen = "\x1b[32m";
constexpr std::string_view kYellow = "\x1b[33m";
constexpr std::string_view kBlue = "\x1b[34m";
constexpr std::string_view kGrey = "\x1b[90m";
constexpr std::string_view kPlain = "\x1b[0m";

std::string_view colourOf(char letter) {
  switch (letter) {
    case 'N':
      return kGreen;
    case 'O':
      return kYellow;
    case '~':
      return kGrey;
    case '!':
    case '?':
    case '+':
      return kRed;
    default:
      return kBlue;
  }
}

std::string painted(std::string_view text, std::string_view colour, Colour use) {
  if (use == Colour::kNo) return std::string(text);
  return std::string(colour) + std::string(text) + std::string(kPlain);
}

// The block in a slot, proved or supposed. kNoBlock if nothing is known.
std::uint64_t blockIn(const FileImage& file, const std::optional<Verification>& verification,
                      std::uint64_t slot) {
  if (verification && slot < verification->slots.size()) {
    const auto& proof = verification->slots[slot];
    return proof ? proof->blockNo : fallback::kNoBlock;
  }
  return file.first.blockNo == fallback::kNoBlock ? fallback::kNoBlock : file.first.blockNo + slot;
}

char letterOf(const FileImage& file, const std::optional<Verification>& verification,
              std::uint64_t slot) {
  const std::uint64_t block = blockIn(file, verification, slot);
  if (verification && slot < verification->slots.size()) {
    if (verification->isDamaged(slot)) return '!';
    if (block == fallback::kNoBlock) return '?';
    if (slot >= verification->freshSlots) return '~';
  }
  if (block == fallback::kNoBlock) return '=';
  if (block == (*file.syncPoints)[1].blockNo) return 'N';
  if (block == (*file.syncPoints)[0].blockNo) return 'O';
  return '=';
}

// The letter for a group of slots: the one that says most.
char letterOfGroup(const FileImage& file, const std::optional<Verification>& verification,
                   std::uint64_t from, std::uint64_t to) {
  static constexpr std::string_view kByWeight = "!NO?~=";
  char letter = '=';
  // Looks only at the two ends of a long group.
  constexpr std::uint64_t kLookAt = 64;
  for (std::uint64_t slot = from; slot < to; ++slot) {
    if (slot == from + kLookAt && to - slot > kLookAt) slot = to - kLookAt;
    const char candidate = letterOf(file, verification, slot);
    if (kByWeight.find(candidate) < kByWeight.find(letter)) letter = candidate;
  }
  return letter;
}

// Colours equal letters together, because some terminals count the characters that switch a colour.
std::string paintedRuns(const std::string& row, Colour colour) {
  std::string text;
  for (std::size_t from = 0; from < row.size();) {
    const std::size_t to = std::min(row.find_first_not_of(row[from], from), row.size());
    text += painted(std::string_view(row).substr(from, to - from), colourOf(row[from]), colour);
    from = to;
  }
  return text;
}

std::string syncText(const fallback::SyncPoints& points) {
  std::string text = "[sync:";
  for (const fallback::SyncPoint& point : points) {
    text += point.blockNo == fallback::kNoBlock ? " none" : " " + std::to_string(point.blockNo);
  }
  return text + "]";
}

}  // namespace

std::string drawLine(const FileImage& file, const std::optional<Verification>& verification,
                     Colour colour) {
  const std::uint64_t letters = std::min(file.slotCount, kMostLetters);
  std::string line = painted("[head]", kBlue, colour);
  line += painted(syncText(*file.syncPoints), kGreen, colour) + "[";
  std::string row;
  for (std::uint64_t i = 0; i < letters; ++i) {
    // Divides first, because the product could exceed 64 bits in a file of many records.
    const auto edge = [&](std::uint64_t k) {
      return file.slotCount / letters * k + file.slotCount % letters * k / letters;
    };
    row += letterOfGroup(file, verification, edge(i), edge(i + 1));
  }
  if (file.tailBytes > 0) row += '+';
  return line + paintedRuns(row, colour) + "]";
}

}  // namespace tallow::inspect
