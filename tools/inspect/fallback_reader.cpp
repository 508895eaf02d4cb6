#include "inspect/fallback_reader.hpp"

#include <algorithm>
#include <cstring>

#include "config/options.hpp"

namespace tallow::inspect {
namespace {

using fallback::HeaderImage;
using fallback::kDataStartOffset;
using fallback::kHeaderText;
using fallback::kHeaderTextLength;
using fallback::kNoBlock;
using fallback::kSyncAreaOffset;
using fallback::SyncPoints;

// More data than a job can have: an exbibyte.
constexpr std::uint64_t kMostData = std::uint64_t{1} << 60;
// How many records' lengths are checked without the original data. More would show nothing new.
constexpr std::uint64_t kLengthsLookedAt = 1024;

// Returns the number of bytes read, which is smaller at the end of the file.
std::size_t readAt(std::istream& file, std::uint64_t offset, void* bytes, std::size_t length) {
  file.clear();
  file.seekg(static_cast<std::streamoff>(offset));
  if (!file) return 0;
  file.read(static_cast<char*>(bytes), static_cast<std::streamsize>(length));
  return static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0));
}

std::optional<std::uint64_t> sizeOf(std::istream& file) {
  file.clear();
  file.seekg(0, std::ios::end);
  const std::streamoff end = file.tellg();
  if (!file || end < 0) return std::nullopt;
  return static_cast<std::uint64_t>(end);
}

FileImage finding(FileImage file, FileState state, const std::string& text) {
  file.state = state;
  file.finding = text;
  return file;
}

bool beginsAsHeader(const HeaderImage& image, std::size_t length) {
  return std::memcmp(image.headerText, kHeaderText, std::min(length, kHeaderTextLength)) == 0;
}

HeaderFields toHeader(const HeaderImage& image) {
  const char* const end = image.pipeName + fallback::kPipeNameSize - 1;
  return {image.blockSize, image.signatureFlag,
          std::string(image.pipeName, std::find(image.pipeName, end, '\0'))};
}

// Whether a sync point names a block that no job can reach.
bool isAbsurd(const FileImage& file, const fallback::SyncPoint& point) {
  const std::uint64_t leastBlock = file.shape.fullBlocks ? file.header->blockSize : 1;
  return point.blockNo != kNoBlock && point.blockNo > kMostData / leastBlock;
}

// What is odd about the pair of block numbers; empty if nothing is.
std::string oddityOfPair(std::uint64_t older, std::uint64_t newer) {
  if (older == newer) {
    return older == 0 || older == kNoBlock ? "" : "both sync points name the same block";
  }
  if (older == kNoBlock) return "";
  if (newer == kNoBlock || newer == 0) {
    return "the older sync point stands beside a newer one that takes both places";
  }
  if (older < newer) return "";
  return "the older sync point, block " + std::to_string(older) + ", lies after the newer, block " +
         std::to_string(newer) + ": right if the job went back to block " + std::to_string(newer) +
         " and took a checkpoint there, damage otherwise";
}

void noteSyncPoints(FileImage& file) {
  const SyncPoints& points = *file.syncPoints;
  const char* const names[] = {"older", "newer"};
  bool absurd = false;
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!isAbsurd(file, points[i])) continue;
    absurd = true;
    file.oddities.push_back(std::string("the ") + names[i] + " sync point names block " +
                            std::to_string(points[i].blockNo) + ", which no job can reach");
  }
  if (absurd) return;
  const std::string oddity = oddityOfPair(points[0].blockNo, points[1].blockNo);
  if (!oddity.empty()) file.oddities.push_back(oddity);
}

void noteSignatures(FileImage& file) {
  if (file.header->signatureFlag > 1) {
    file.oddities.push_back("the signature flag is " + std::to_string(file.header->signatureFlag) +
                            " and counts as set");
  }
  if (file.header->signatureFlag != 0) return;
  for (const fallback::SyncPoint& point : *file.syncPoints) {
    if (point.signature != fallback::Md5Digest{}) {
      file.oddities.emplace_back("a sync point has a signature although the flag is clear");
      return;
    }
  }
}

std::uint64_t wholeRecords(const FileImage& file) {
  return (file.size - kDataStartOffset) / file.layout().recordSize();
}

// Whether each record would begin with a length that the module can have written.
bool lengthsFit(std::istream& stream, FileImage file) {
  file.shape.fullBlocks = false;
  const std::uint64_t whole = wholeRecords(file);
  bool anyData = false;
  for (std::uint64_t slot = 0; slot < std::min(whole, kLengthsLookedAt); ++slot) {
    const auto length = readRecordLength(stream, file, slot);
    if (!length || *length > file.header->blockSize) return false;
    anyData = anyData || *length > 0;
  }
  return anyData;
}

std::uint64_t countDamagedLengths(std::istream& stream, const FileImage& file) {
  std::uint64_t damaged = 0;
  for (std::uint64_t slot = 0; slot < std::min(file.slotCount, kLengthsLookedAt); ++slot) {
    if (readRecordLength(stream, file, slot).value_or(0) > file.header->blockSize) ++damaged;
  }
  return damaged;
}

RecordShape guessShape(std::istream& stream, const FileImage& file) {
  const std::uint64_t dataSize = file.size - kDataStartOffset;
  const std::uint64_t blockSize = file.header->blockSize;
  if (dataSize == 0) return {true, Certainty::kGuess, "the default; there are no records yet"};
  const bool fullFits = dataSize % blockSize == 0;
  const bool lengths = lengthsFit(stream, file);
  if (lengths && dataSize % (blockSize + 4) == 0) {
    return {false, Certainty::kGuess, "every record begins with a fitting length"};
  }
  if (fullFits) return {true, Certainty::kGuess, "the data area is a whole number of blocks"};
  if (lengths) {
    return {false, Certainty::kGuess, "the records begin with fitting lengths; the last is cut"};
  }
  return {true, Certainty::kGuess, "the records begin with no fitting lengths; the last is cut"};
}

FirstBlock guessFirst(const FileImage& file) {
  const std::uint64_t newer = (*file.syncPoints)[1].blockNo;
  if (newer == kNoBlock) return {kNoBlock, Certainty::kGuess, "there is no sync point"};
  if (newer == 0) return {1, Certainty::kGuess, "the checkpoint lies before the first block"};
  if (isAbsurd(file, (*file.syncPoints)[1])) {
    return {kNoBlock, Certainty::kGuess, "the newer sync point cannot be right"};
  }
  return {newer, Certainty::kGuess, "the records start afresh at each checkpoint"};
}

}  // namespace

FileImage readFallbackFile(std::istream& stream, const Hints& hints) {
  FileImage file;
  const auto size = sizeOf(stream);
  if (!size) return finding(file, FileState::kUnreadable, "the file cannot be read");
  file.size = *size;

  HeaderImage image{};
  const std::size_t got = readAt(stream, 0, &image, sizeof image);
  if (got == 0 && file.size > 0) {
    return finding(file, FileState::kUnreadable, "the file cannot be read");
  }
  if (!beginsAsHeader(image, got)) {
    return finding(file, FileState::kForeign,
                   "not a fallback file: it does not begin with the header text");
  }
  if (got < sizeof image) {
    return finding(file, FileState::kTruncated,
                   "cut short inside the header, at byte " + std::to_string(got) + " of " +
                       std::to_string(sizeof image) + "; no run takes it over");
  }
  file.header = toHeader(image);
  SyncPoints points{};
  const std::size_t syncGot = readAt(stream, kSyncAreaOffset, &points, sizeof points);
  if (syncGot < sizeof points) {
    return finding(file, FileState::kTruncated,
                   "cut short inside the sync area, at byte " + std::to_string(syncGot) + " of " +
                       std::to_string(sizeof points) + "; no run takes it over");
  }
  file.syncPoints = points;
  // The file of a running job may have grown since its size was read.
  file.size = std::max(file.size, kDataStartOffset);
  if (file.header->blockSize == 0 || file.header->blockSize > config::kLargestBlockSize) {
    return finding(file, FileState::kBadHeader,
                   "the header names a block size of " + std::to_string(file.header->blockSize) +
                       " bytes; no run takes it over");
  }
  file.state = FileState::kValid;
  file.shape = hints.fullBlocks ? RecordShape{*hints.fullBlocks, Certainty::kGiven, {}}
                                : guessShape(stream, file);
  noteSignatures(file);
  noteSyncPoints(file);
  file.first =
      hints.firstBlock ? FirstBlock{*hints.firstBlock, Certainty::kGiven, {}} : guessFirst(file);
  file.slotCount = wholeRecords(file);
  file.tailBytes = (file.size - kDataStartOffset) % file.layout().recordSize();
  file.damagedLengths = countDamagedLengths(stream, file);
  return file;
}

std::optional<std::uint32_t> readRecordLength(std::istream& stream, const FileImage& file,
                                              std::uint64_t slot) {
  if (file.shape.fullBlocks) return std::nullopt;
  std::uint32_t length = 0;
  if (readAt(stream, file.slotOffset(slot), &length, sizeof length) < sizeof length) {
    return std::nullopt;
  }
  return length;
}

std::string readRecordData(std::istream& stream, const FileImage& file, std::uint64_t slot) {
  std::string data(file.header->blockSize, '\0');
  data.resize(readAt(stream, file.slotOffset(slot) + file.layout().lengthFieldSize(), data.data(),
                     data.size()));
  return data;
}

}  // namespace tallow::inspect
