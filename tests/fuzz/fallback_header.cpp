// The header, sync area and record geometry of a fallback file, from any bytes.
#include <cstring>
#include <string>

#include "fallback/fallback_format.hpp"
#include "fallback/fallback_name.hpp"
#include "fuzz_target.hpp"

namespace {

using namespace tallow;
using namespace tallow::fallback;
using fuzz::require;

void checkHeader(std::string_view bytes, const std::string& pipeName, std::uint64_t blockSize) {
  HeaderImage read = {};
  bytes.copy(reinterpret_cast<char*>(&read), sizeof read);
  HeaderImage own = {};
  setJobFields(own, blockSize, read.signatureFlag != 0);
  setPipeName(own, pipeName.c_str());
  require(own.pipeName[kPipeNameSize - 1] == '\0', "the pipe name has an end");

  HeaderImage judged = read;
  const HeaderVerdict verdict = judgeHeader(judged, pipeName.c_str(), blockSize);
  if (verdict == HeaderVerdict::kAccepted) {
    require(std::strcmp(judged.headerText, kHeaderText) == 0, "an accepted file has the text");
    require(std::strcmp(judged.pipeName, pipeName.c_str()) == 0, "an accepted file has the name");
    require(judged.blockSize == blockSize, "an accepted file has the block size");
  }
  HeaderImage again = own;
  if (pipeName.size() < kPipeNameSize && blockSize <= 0xffffffff) {
    require(judgeHeader(again, pipeName.c_str(), blockSize) == HeaderVerdict::kAccepted,
            "what the module writes it accepts");
  }
}

void checkSyncPoints(fuzz::Input& input) {
  SyncPoints points = kNoSyncPoints;
  while (!input.empty()) {
    SyncPoint point = {};
    point.blockNo = input.byte() % 8 == 0 ? kNoBlock : input.number(1 + input.byte() % 8);
    point.signature[0] = input.byte();
    const SyncPoints before = points;
    addSyncPoint(points, point);
    if (point.blockNo == kNoBlock || point.blockNo == 0) {
      require(points[0].blockNo == point.blockNo && points[1].blockNo == point.blockNo,
              "the start takes both places");
      continue;
    }
    require(points[1].blockNo == point.blockNo, "the point is the newer one");
    const SyncPoint* found = findSyncPoint(points, point.blockNo);
    require(found != nullptr && found->blockNo == point.blockNo, "the point is found");
    if (before[1].blockNo != point.blockNo) {
      require(points[0].blockNo == before[1].blockNo, "the newer one became the older");
      require(points[1].signature == point.signature, "its signature is its own");
    }
  }
}

void checkGeometry(std::uint64_t blockSize, std::uint64_t first, std::uint64_t distance) {
  for (const bool fullBlocks : {false, true}) {
    const RecordLayout layout{blockSize, fullBlocks};
    require(layout.offsetOf(first, first) == kDataStartOffset, "the first record is at the start");
    require(layout.offsetOf(kNoBlock, first) == kDataStartOffset, "none is at the start");
    if (first + distance == kNoBlock || first + distance + 1 == kNoBlock) continue;
    require(
        layout.offsetOf(first + distance + 1, first) - layout.offsetOf(first + distance, first) ==
            layout.recordSize(),
        "records follow one another");
  }
}

void checkName(const std::string& pipeName, unsigned number) {
  const std::string stem = nameStem(pipeName);
  require(stem.size() >= 4 && stem.find('\\') == std::string::npos, "a stem is one name");
  require(isNumberedName(numberedName(stem, number), stem), "a numbered name is known again");
}

}  // namespace

TALLOW_FUZZ_TARGET(fallback_header) {
  fuzz::Input input(data, size);
  const std::uint64_t blockSize = 1 + input.number(4);
  const std::uint64_t first = input.number(8);
  const std::uint64_t distance = input.number(4);
  std::string pipeName(input.text(input.number(2) % 400));
  pipeName.resize(std::min(pipeName.find('\0'), pipeName.size()));
  checkHeader(input.text(sizeof(HeaderImage)), pipeName, blockSize);
  checkGeometry(blockSize, first, distance);
  checkName(pipeName, static_cast<unsigned>(distance % kNumberedNames));
  checkSyncPoints(input);
  return 0;
}
