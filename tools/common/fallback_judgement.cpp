#include "common/fallback_judgement.hpp"

#include <cstring>

namespace tallow::tools {

using fallback::HeaderVerdict;

std::string fallbackFault(std::span<const std::byte> beginning, const FallbackOwner& owner) {
  if (beginning.size() < fallback::kDataStartOffset) return "is cut short";
  fallback::HeaderImage header;
  std::memcpy(&header, beginning.data(), sizeof header);
  const std::string pipe = owner.pipe.substr(0, fallback::kPipeNameSize - 1);
  switch (fallback::judgeHeader(header, pipe.c_str(), owner.blockSize)) {
    case HeaderVerdict::kAccepted:
      return {};
    case HeaderVerdict::kTextDiffers:
      return "is no fallback file";
    case HeaderVerdict::kPipeNameDiffers:
      return "belongs to a job with another pipe";
    case HeaderVerdict::kBlockSizeDiffers:
      return "belongs to a job with another block size";
  }
  return {};
}

std::string fallbackFault(std::span<const std::byte> beginning, const FallbackOwner& owner,
                          std::uint64_t position) {
  std::string fault = fallbackFault(beginning, owner);
  if (!fault.empty()) return fault;
  fallback::SyncPoints points;
  std::memcpy(&points, beginning.data() + fallback::kSyncAreaOffset, sizeof points);
  if (fallback::findSyncPoint(points, position) != nullptr) return {};
  return "has no checkpoint at block " + std::to_string(position);
}

}  // namespace tallow::tools
