#include "delivery/requests.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::delivery {

using diag::LogLevel;

std::uint32_t getPos(Job& job, TallowPositionBlock& block) {
  DeliveryState& state = job.state;
  if (state.stream == StreamState::kLost) return pmrcDelivery;
  job.fallback.createIfPending();
  if (state.mode == DeliveryMode::kRestartable) {
    diag::logMessage<MessageId::kGetPosDropsRecovery>(LogLevel::kPosition,
                                                      job.fallback.name().c_str());
    dropRecovery(job);
  }
  job.fallback.checkpoint(state.lastBlockNo, state.md5Running.md5);
  state.md5AtCheckpoint = state.md5Running;
  block.positionLength = TALLOW_POSITION_SIZE;
  block.position = &state.lastBlockNo;
  state.checkpointBlockNo = state.lastBlockNo;
  diag::log(LogLevel::kTrace, MessageId::kTrace, "GetPos returns block no. %I64u.",
            state.lastBlockNo);
  return pmrcSuccess;
}

}  // namespace tallow::delivery
