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

void writePending(Job& job, fallback::PendingWrite mode) {
  if (fallback::writePendingBlock(job.fallback, job.options, job.pending,
                                  job.state.checkpointBlockNo, mode)) {
    job.state.md5AtFileFirst = job.state.md5Running;
  }
}

void dropRecovery(Job& job) {
  if (fallback::seek(job.fallback, fallback::kSyncAreaOffset)) {
    fallback::writeSyncArea(job.fallback, kNoBlock, job.state.md5Running.md5);
  }
  job.state.deliveryMode = DeliveryMode::kLive;
}

}  // namespace tallow::delivery
