#include "fallback/fallback_format.hpp"

#include <algorithm>
#include <cstring>

namespace tallow::fallback {

void setPipeName(HeaderImage& header, const char* pipeName) {
  const std::size_t length = std::min(std::strlen(pipeName), kPipeNameSize - 1);
  std::memset(header.pipeName, 0, kPipeNameSize);
  std::memcpy(header.pipeName, pipeName, length);
}

void setJobFields(HeaderImage& header, std::uint64_t blockSize, bool signatures) {
  std::memcpy(header.headerText, kHeaderText, sizeof kHeaderText);
  header.blockSize = static_cast<std::uint32_t>(blockSize);
  header.signatureFlag = signatures ? 1 : 0;
}

HeaderVerdict judgeHeader(HeaderImage& read, const char* pipeName, std::uint64_t blockSize) {
  read.headerText[kHeaderTextLength] = '\0';
  if (std::strcmp(read.headerText, kHeaderText) != 0) return HeaderVerdict::kTextDiffers;
  read.pipeName[kPipeNameSize - 1] = '\0';
  if (std::strcmp(read.pipeName, pipeName) != 0) return HeaderVerdict::kPipeNameDiffers;
  if (read.blockSize != blockSize) return HeaderVerdict::kBlockSizeDiffers;
  return HeaderVerdict::kAccepted;
}

void addSyncPoint(SyncPoints& points, const SyncPoint& point) {
  if (point.blockNo == kNoBlock || point.blockNo == 0) {
    points = {point, point};
  } else if (point.blockNo == points[1].blockNo) {
    points[1] = point;
  } else {
    points = {points[1], point};
  }
}

const SyncPoint* findSyncPoint(const SyncPoints& points, std::uint64_t blockNo) {
  const auto* found = std::find_if(points.begin(), points.end(), [blockNo](const SyncPoint& point) {
    return point.blockNo == blockNo;
  });
  return found != points.end() ? found : nullptr;
}

}  // namespace tallow::fallback
