#include "inspect/report.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "common/formatting.hpp"
#include "common/printable.hpp"
#include "common/text.hpp"

namespace tallow::inspect {
namespace {

using fallback::kNoBlock;
using nlohmann::ordered_json;

// Of longer lists of records, only the two ends are printed.
constexpr std::uint64_t kEndsInText = 12;
constexpr std::uint64_t kEndsInJson = 5000;
constexpr const char* kSyncPointNames[] = {"older", "newer"};

std::string hex(const fallback::Md5Digest& digest) {
  std::string text;
  std::array<char, 3> pair{};
  for (const std::uint8_t byte : digest) {
    std::snprintf(pair.data(), pair.size(), "%02x", byte);
    text += pair.data();
  }
  return text;
}

const char* stateName(FileState state) {
  switch (state) {
    case FileState::kValid:
      return "valid";
    case FileState::kForeign:
      return "foreign";
    case FileState::kTruncated:
      return "truncated";
    case FileState::kBadHeader:
      return "damaged";
    case FileState::kUnreadable:
      break;
  }
  return "unreadable";
}

const char* certaintyName(Certainty certainty) {
  switch (certainty) {
    case Certainty::kGiven:
      return "given";
    case Certainty::kGuess:
      return "guess";
    case Certainty::kProved:
      break;
  }
  return "proved";
}

const char* proofName(SignatureProof proof) {
  switch (proof) {
    case SignatureProof::kMatches:
      return "matches";
    case SignatureProof::kDiffers:
      return "differs";
    case SignatureProof::kNone:
      break;
  }
  return "undecided";
}

bool isDisproved(const Subject& subject, std::size_t syncPoint) {
  return subject.verification &&
         subject.verification->syncPoints[syncPoint].signature == SignatureProof::kDiffers;
}

// The block numbers of the sync points that the data disproves, or of the others. The older one
// comes first, and each number comes once.
std::vector<std::uint64_t> positions(const Subject& subject, bool disproved) {
  std::vector<std::uint64_t> found;
  const fallback::SyncPoints& points = *subject.file.syncPoints;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (points[i].blockNo == kNoBlock || isDisproved(subject, i) != disproved) continue;
    if (std::count(found.begin(), found.end(), points[i].blockNo) == 0) {
      found.push_back(points[i].blockNo);
    }
  }
  return found;
}

std::string joined(const std::vector<std::uint64_t>& points) {
  std::string text = std::to_string(points[0]);
  if (points.size() > 1) text += " or " + std::to_string(points[1]);
  return text;
}

std::string restartText(const Subject& subject) {
  const FileImage& file = subject.file;
  const std::vector<std::uint64_t> accepted = positions(subject, false);
  const std::vector<std::uint64_t> refused = positions(subject, true);
  if (accepted.empty() && refused.empty()) return "accepts no position: the file has no sync point";
  const std::string disproved =
      refused.empty() ? "" : "position " + joined(refused) + " with this data: it is not the same";
  if (accepted.empty()) return "refuses " + disproved;
  std::string text = "accepts position " + joined(accepted) +
                     ", with this pipe and Block_size=" + std::to_string(file.header->blockSize);
  if (file.header->signatureFlag == 0) {
    text += ", and Signature_check=0 or 1, since there are no signatures";
  }
  if (!file.shape.fullBlocks) {
    text += "; Need_Full_Block seems off, and tallow-host does not restart such a job";
  }
  return disproved.empty() ? text : text + "; refuses " + disproved;
}

// What a record is known or supposed to hold.
struct SlotReport {
  std::uint64_t blockNo = kNoBlock;
  Certainty certainty = Certainty::kGuess;
  std::optional<std::uint64_t> validLength;
  bool lengthProved = false;
  bool badLength = false;  // above the block size: the module cannot deliver it
  bool damaged = false;    // that, or proved not to hold what it must
  bool leftOver = false;   // proved: from before the last checkpoint
  bool unknown = false;    // proved: no block of the data
};

SlotReport reportOf(const Subject& subject, std::istream& stream, std::uint64_t slot) {
  SlotReport report;
  const FileImage& file = subject.file;
  if (const auto length = readRecordLength(stream, file, slot)) {
    report.validLength = *length;
    report.badLength = *length > file.header->blockSize;
    report.damaged = report.badLength;
  }
  if (subject.verification && slot < subject.verification->slots.size()) {
    const auto& proof = subject.verification->slots[slot];
    report.certainty = Certainty::kProved;
    report.unknown = !proof;
    report.damaged = report.damaged || subject.verification->isDamaged(slot);
    if (!proof) return report;
    report.blockNo = proof->blockNo;
    report.validLength = proof->length;
    report.lengthProved = true;
    report.leftOver = slot >= subject.verification->freshSlots;
  } else if (file.first.blockNo != kNoBlock) {
    report.blockNo = file.first.blockNo + slot;
    report.certainty = file.first.certainty;
  }
  return report;
}

std::string contentText(const Subject& subject, const SlotReport& slot) {
  std::string text;
  if (slot.unknown) {
    // If records have lengths, those after the proved run may hold earlier blocks.
    text = subject.file.shape.fullBlocks ? "no block of the data (proved)"
                                         : "not identified in the data";
  } else if (slot.blockNo == kNoBlock) {
    text = "some block";
  } else {
    text = "block " + std::to_string(slot.blockNo);
    if (slot.certainty == Certainty::kProved) {
      text += slot.leftOver ? " (proved, left over from before)" : " (proved)";
    } else {
      text += slot.certainty == Certainty::kGuess ? " (guess)" : " (as given)";
    }
  }
  if (slot.badLength) return text + ", damaged: its length cannot be right";
  if (slot.damaged && !slot.unknown) return text + ", damaged: another block belongs here";
  if (slot.damaged) text += ", damaged: later records are";
  if (slot.validLength) {
    text += ", " + tools::formatCount(*slot.validLength, "valid byte");
  } else if (!slot.unknown) {
    text += ", full unless it is the last of the data";
  }
  return text;
}

void printLine(const char* name, const std::string& text) {
  std::printf("%-12s%s\n", name, text.c_str());
}

void printSyncPoints(const Subject& subject) {
  for (std::size_t i = 0; i < 2; ++i) {
    const fallback::SyncPoint point = (*subject.file.syncPoints)[i];
    std::string text = std::string(kSyncPointNames[i]) + ": ";
    if (point.blockNo == kNoBlock) {
      text += "none";
    } else {
      text += "block " + std::to_string(point.blockNo) + ", signature " + hex(point.signature);
    }
    if (subject.verification) {
      const SyncPointProof& proof = subject.verification->syncPoints[i];
      if (proof.signature == SignatureProof::kMatches) text += " (proved)";
      if (proof.signature == SignatureProof::kDiffers) text += " (WRONG: the data differs)";
      if (!proof.reason.empty()) text += " (" + proof.reason + ")";
    }
    printLine(i == 0 ? "sync points" : "", text);
  }
}

void printSlots(const Subject& subject, std::istream& stream) {
  const FileImage& file = subject.file;
  for (std::uint64_t slot = 0; slot < file.slotCount; ++slot) {
    if (slot == kEndsInText && file.slotCount > 2 * kEndsInText) {
      const std::uint64_t next = file.slotCount - kEndsInText;
      std::printf("  ...       %s more; --json lists them\n",
                  tools::formatCount(next - slot, "record").c_str());
      slot = next;
    }
    std::printf("  slot %-6llu at byte %-12llu%s\n", static_cast<unsigned long long>(slot),
                static_cast<unsigned long long>(file.slotOffset(slot)),
                contentText(subject, reportOf(subject, stream, slot)).c_str());
  }
}

std::string supposition(Certainty certainty, const std::string& reason) {
  if (certainty == Certainty::kGuess) return " (guess: " + reason + ")";
  return certainty == Certainty::kGiven ? " (as given)" : " (proved)";
}

ordered_json slotJson(const Subject& subject, std::istream& stream, std::uint64_t slot) {
  const SlotReport report = reportOf(subject, stream, slot);
  const bool known = report.blockNo != kNoBlock;
  return {{"slot", slot},
          {"offset", subject.file.slotOffset(slot)},
          {"block", known ? ordered_json(report.blockNo) : ordered_json(nullptr)},
          {"certainty", known || report.unknown ? ordered_json(certaintyName(report.certainty))
                                                : ordered_json(nullptr)},
          {"validLength",
           report.validLength ? ordered_json(*report.validLength) : ordered_json(nullptr)},
          {"damaged", report.damaged},
          {"leftOver", report.leftOver}};
}

ordered_json slotsJson(const Subject& subject, std::istream& stream) {
  ordered_json slots = ordered_json::array();
  const std::uint64_t count = subject.file.slotCount;
  for (std::uint64_t slot = 0; slot < count; ++slot) {
    if (slot == kEndsInJson && count > 2 * kEndsInJson) slot = count - kEndsInJson;
    slots.push_back(slotJson(subject, stream, slot));
  }
  return slots;
}

ordered_json syncPointsJson(const Subject& subject) {
  ordered_json list = ordered_json::array();
  for (std::size_t i = 0; i < 2; ++i) {
    const fallback::SyncPoint point = (*subject.file.syncPoints)[i];
    const bool none = point.blockNo == kNoBlock;
    ordered_json item = {{"which", kSyncPointNames[i]},
                         {"block", none ? ordered_json(nullptr) : ordered_json(point.blockNo)},
                         {"signature", hex(point.signature)}};
    if (subject.verification) {
      item["proof"] = proofName(subject.verification->syncPoints[i].signature);
      item["reason"] = subject.verification->syncPoints[i].reason;
    }
    list.push_back(item);
  }
  return list;
}

std::string recordsText(const Subject& subject) {
  const FileImage& file = subject.file;
  std::string text = tools::formatCount(file.slotCount, "record");
  if (file.tailBytes > 0) {
    text += " and " + tools::formatCount(file.tailBytes, "byte") + " of one cut short";
  }
  if (!subject.verification) {
    if (file.slotCount == 0) return text;
    return text + "; where fresh ones end and older ones begin, only --verify can tell";
  }
  const Verification& proved = *subject.verification;
  text += ", the first " + std::to_string(proved.freshSlots) + " of them fresh (proved)";
  if (proved.damagedSlots > 0) text += ", " + std::to_string(proved.damagedSlots) + " damaged";
  if (proved.unknownSlots() > 0 && file.shape.fullBlocks) {
    text += ", " + std::to_string(proved.unknownSlots()) +
            " at the end not of this data: left over from other data, or damaged";
  }
  return text;
}

void addContent(ordered_json& json, const Subject& subject, std::istream& stream) {
  const FileImage& file = subject.file;
  json["syncPoints"] = syncPointsJson(subject);
  json["needFullBlock"] = {{"value", file.shape.fullBlocks},
                           {"certainty", certaintyName(file.shape.certainty)},
                           {"reason", file.shape.reason}};
  json["firstBlock"] = {
      {"value",
       file.first.blockNo == kNoBlock ? ordered_json(nullptr) : ordered_json(file.first.blockNo)},
      {"certainty", certaintyName(file.first.certainty)},
      {"reason", file.first.reason}};
  json["slotCount"] = file.slotCount;
  json["tailBytes"] = file.tailBytes;
  json["slots"] = slotsJson(subject, stream);
  json["restart"] = {{"positions", positions(subject, false)},
                     {"disproved", positions(subject, true)},
                     {"text", restartText(subject)}};
  if (subject.verification) {
    json["verification"] = {{"freshSlots", subject.verification->freshSlots},
                            {"damagedSlots", subject.verification->damagedSlots},
                            {"unknownSlots", subject.verification->unknownSlots()},
                            {"limit", subject.verification->limit}};
  }
  json["line"] = drawLine(file, subject.verification, Colour::kNo);
}

}  // namespace

bool isSound(const Subject& subject) {
  if (subject.file.state != FileState::kValid) return false;
  if (subject.file.damagedLengths > 0) return false;
  if (!subject.verification) return true;
  if (subject.verification->damagedSlots > 0) return false;
  const auto& proofs = subject.verification->syncPoints;
  return std::none_of(proofs.begin(), proofs.end(), [](const SyncPointProof& proof) {
    return proof.signature == SignatureProof::kDiffers;
  });
}

void printText(const Subject& subject, std::istream& stream, Colour colour) {
  const FileImage& file = subject.file;
  printLine("file", tools::printable(subject.name) + ", " + tools::formatCount(file.size, "byte"));
  printLine("state", file.finding.empty()
                         ? stateName(file.state)
                         : std::string(stateName(file.state)) + ": " + file.finding);
  if (file.header) {
    printLine("pipe", tools::printable(tools::ansiToUtf8(file.header->pipeName)));
    printLine("block size", tools::formatCount(file.header->blockSize, "byte"));
    printLine("signatures", file.header->signatureFlag != 0 ? "on" : "off");
  }
  if (file.state != FileState::kValid) return;
  for (const std::string& oddity : file.oddities) printLine("note", oddity);
  printSyncPoints(subject);
  printLine("full blocks", std::string(file.shape.fullBlocks ? "on" : "off") +
                               supposition(file.shape.certainty, file.shape.reason));
  printLine("first block", (file.first.blockNo == kNoBlock ? std::string("unknown")
                                                           : std::to_string(file.first.blockNo)) +
                               supposition(file.first.certainty, file.first.reason));
  printLine("records", recordsText(subject));
  printSlots(subject, stream);
  if (subject.verification && !subject.verification->limit.empty()) {
    printLine("note", subject.verification->limit);
  }
  printLine("restart", restartText(subject));
  printLine("picture", drawLine(file, subject.verification, colour));
}

void printJson(const Subject& subject, std::istream& stream) {
  const FileImage& file = subject.file;
  ordered_json json = {{"file", subject.name},
                       {"size", file.size},
                       {"state", stateName(file.state)},
                       {"finding", file.finding},
                       {"sound", isSound(subject)}};
  if (file.header) {
    json["header"] = {{"pipe", tools::ansiToUtf8(file.header->pipeName)},
                      {"blockSize", file.header->blockSize},
                      {"signatureFlag", file.header->signatureFlag}};
  }
  if (file.state == FileState::kValid) {
    json["notes"] = file.oddities;
    addContent(json, subject, stream);
  }
  // In ASCII, so that a terminal finds nothing in it to obey.
  std::printf("%s\n", json.dump(2, ' ', true, nlohmann::detail::error_handler_t::replace).c_str());
}

}  // namespace tallow::inspect
