#include "diag/failure_report.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tallow::diag {

MessageArea& moduleMessageArea() noexcept {
  static constinit MessageArea area = {};
  return area;
}

void reportFailure(TallowRequestBlock& request, MessageArea* area, std::string_view text) noexcept {
  MessageArea& target = area != nullptr ? *area : moduleMessageArea();
  const std::size_t kept = std::min(text.size(), sizeof(MessageArea) - 1);
  std::memset(target, 0, sizeof(MessageArea));
  std::memcpy(target, text.data(), kept);
  request.returnCode = pmrcFailed;
  request.messageText = target;
  request.messageLength = static_cast<std::uint32_t>(text.size());
}

}  // namespace tallow::diag
