#include <cstring>
#include <optional>

#include "delivery/requests.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace tallow::delivery {
namespace {

using diag::log;
using diag::LogLevel;

std::uint32_t returnEof(DeliveryState& state, TallowReadBlock& block) {
  log(LogLevel::kTrace, MessageId::kTrace, "Returning pmrcEOF to Kelvane.");
  state.eofReturned = true;
  block.dataLength = 0;
  return pmrcEOF;
}

void logPipeBlock(std::uint32_t length, std::uint64_t blockNo) {
  log(LogLevel::kTrace, MessageId::kTrace,
      "Returning %d data bytes from pipe to Kelvane as block no. %I64u.", static_cast<int>(length),
      blockNo);
}

// Delivers the block that a restart has left in the pending buffer. It stays pending.
void deliverPending(Job& job, TallowReadBlock& block) {
  DeliveryState& state = job.state;
  std::memcpy(block.dataBuffer, job.pending.data.get(), job.pending.length);
  block.dataLength = job.pending.length;
  logPipeBlock(job.pending.length, state.nextBlockNo);
  state.lastBlockNo = state.nextBlockNo++;
}

// Reads into the host's buffer. The data length is correct even if the pipe raises a failure
// half-way. The bytes read until then cannot be read again.
pipe::PipeRead readPipe(Job& job, TallowReadBlock& block) {
  const std::uint64_t blockNo = job.state.nextBlockNo;
  std::uint32_t length = 0;
  try {
    const pipe::PipeRead read =
        job.options.needFullBlock
            ? pipe::readFullBlock(job.pipe, job.options, block.dataBuffer, length, blockNo)
            : pipe::readAvailable(job.pipe, job.options, block.dataBuffer, length, blockNo);
    block.dataLength = length;
    return read;
  } catch (...) {
    block.dataLength = length;
    if (length != 0) job.state.stream = StreamState::kTorn;
    throw;
  }
}

std::uint32_t deliverFromPipe(Job& job, TallowReadBlock& block) {
  DeliveryState& state = job.state;
  const pipe::PipeRead read = readPipe(job, block);
  state.pipeEof = read.end;
  const std::uint32_t length = block.dataLength;
  if (length == 0 && read.end) return returnEof(state, block);
  const std::uint64_t blockNo = state.nextBlockNo++;
  coverPipeBlock(job, blockNo, block.dataBuffer, length, read);
  state.lastBlockNo = blockNo;
  std::memcpy(job.pending.data.get(), block.dataBuffer, length);
  job.pending.length = length;
  job.pending.blockNo = blockNo;
  logPipeBlock(length, blockNo);
  return pmrcSuccess;
}

std::uint32_t deliverLive(Job& job, TallowReadBlock& block) {
  if (job.pending.blockNo == job.state.nextBlockNo) {
    deliverPending(job, block);
    return pmrcSuccess;
  }
  writePending(job, PendingWrite::kMayStartArea);
  if (job.state.pipeEof) return returnEof(job.state, block);
  return deliverFromPipe(job, block);
}

// Delivers the next block from the fallback file. After the file's last block, the job reads from
// the pipe again. If the record cannot be read, the next call tries the same record again.
std::uint32_t replay(Job& job, TallowReadBlock& block) {
  DeliveryState& state = job.state;
  const std::optional<std::uint32_t> length =
      job.fallback.readBlock(state.nextBlockNo, block.dataBuffer);
  if (!length) return pmrcDelivery;
  block.dataLength = *length;
  const std::uint64_t blockNo = state.nextBlockNo++;
  state.lastBlockNo = blockNo;
  coverReplayedBlock(job, blockNo, block.dataBuffer, *length);
  if (job.fallback.endReplayAt(blockNo)) state.mode = DeliveryMode::kLive;
  return pmrcSuccess;
}

}  // namespace

std::uint32_t read(Job& job, TallowReadBlock& block) {
  if (job.state.stream != StreamState::kWhole) return pmrcDelivery;
  if (job.state.mode == DeliveryMode::kRestartable) {
    diag::logMessage<MessageId::kReadDropsRecovery>(LogLevel::kPosition,
                                                    job.fallback.name().c_str());
    dropRecovery(job);
  }
  return job.state.mode == DeliveryMode::kReplaying ? replay(job, block) : deliverLive(job, block);
}

}  // namespace tallow::delivery
