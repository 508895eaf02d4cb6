// What Read, GetPos and SetPos share: the state of one job.
#pragma once

#include <cstdint>

#include "config/options_record.hpp"
#include "delivery/running_digest.hpp"
#include "fallback/fallback_file.hpp"
#include "fallback/write.hpp"
#include "pipe/pipe_input.hpp"
#include "pipe/pipe_read.hpp"

namespace tallow::delivery {

using fallback::kNoBlock;

enum class DeliveryMode : std::uint32_t {
  kLive = 0,         // from the pipe
  kRestartable = 1,  // a file was taken over at Open; the host has not said yet what it wants
  kReplaying = 2     // from the fallback file
};

// Whether the stream can be continued. When it can't, nothing is delivered until Close.
enum class StreamState : std::uint8_t {
  kWhole,
  kTorn,  // a live Read failed and has lost bytes; the position before it still stands
  kLost   // a restart failed after it had begun to consume the re-sent data: the position of the
          // stream is unknown
};

struct DeliveryState {
  DeliveryMode deliveryMode = DeliveryMode::kLive;
  std::uint64_t nextBlockNo = 1;  // the block that the next Read delivers
  std::uint64_t lastBlockNo = 0;  // the block delivered last; the position that GetPos hands out
  std::uint64_t checkpointBlockNo = kNoBlock;  // of the latest GetPos, or accepted by SetPos
  bool pipeEof = false;                        // the pipe has reported the end of the data
  bool eofReturned = false;                    // Read has returned this to the host
  StreamState stream = StreamState::kWhole;

  RunningDigest md5Running;
  // The digests at the two positions that SetPos can go back to.
  RunningDigest md5AtCheckpoint;
  RunningDigest md5AtFileFirst;
  // The latest block that ended with error 109 or a time-out. Such a block is in no signature,
  // however often it is delivered.
  std::uint64_t unhashedBlockNo = kNoBlock;
};

struct Job {
  explicit Job(config::OptionsRecord& jobOptions)
      : options(jobOptions), pending(jobOptions.blockSize) {}

  config::OptionsRecord& options;
  pipe::PipeInput pipe;
  fallback::FallbackFile fallback;
  fallback::PendingBlock pending;
  DeliveryState state;
};

// Adds a block that was read from the pipe to the running digest.
void coverPipeBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length,
                    const pipe::PipeRead& read);

// Adds a block that was replayed from the fallback file to the running digest, unless the digest
// already has it.
void coverReplayedBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length);

// Writes the pending block. If it becomes the file's first block, keeps the digest up to it.
void writePending(Job& job, fallback::PendingWrite mode);

// Gives up the restart from a file that was taken over, because the host does not ask for it. The
// file's sync points are overwritten and the job continues as a new one.
void dropRecovery(Job& job);

}  // namespace tallow::delivery
