#include "delivery/job.hpp"

namespace tallow::delivery {
namespace {

// A job without a signature check still computes signatures if it took over a file that has them.
bool isHashing(const Job& job) {
  return job.options.signatureCheck != 0 || job.fallback.hasSignatures();
}

void cover(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length) {
  RunningDigest& running = job.state.md5Running;
  if (isHashing(job) && blockNo != job.state.unhashedBlockNo) {
    fallback::md5Update(running.md5, data, length);
  }
  running.coveredBlockNo = blockNo;
}

}  // namespace

void coverPipeBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length,
                    const pipe::PipeRead& read) {
  if (!read.hash) job.state.unhashedBlockNo = blockNo;
  cover(job, blockNo, data, length);
}

void coverReplayedBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length) {
  if (blockNo > job.state.md5Running.coveredBlockNo) cover(job, blockNo, data, length);
}

void writePending(Job& job, PendingWrite mode) {
  PendingBlock& pending = job.pending;
  const std::uint64_t checkpoint = job.state.checkpointBlockNo;
  if (pending.blockNo == kNoBlock || checkpoint == kNoBlock) return;
  if (!job.fallback.canAppend(pending.blockNo)) return;
  const bool startsArea = mode == PendingWrite::kMayStartArea && pending.blockNo == checkpoint;
  const bool isFirst =
      job.fallback.append({pending.blockNo, pending.data.get(), pending.length},
                          startsArea ? fallback::Place::kStart : fallback::Place::kAfterLast);
  pending.blockNo = kNoBlock;  // even if it could not be written
  if (isFirst) job.state.md5AtFileFirst = job.state.md5Running;
}

void dropRecovery(Job& job) {
  job.fallback.dropRecovery();
  job.state.mode = DeliveryMode::kLive;
}

}  // namespace tallow::delivery
