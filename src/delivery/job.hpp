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
  kLost   // a restart failed after it had begun to use the re-sent data up: where the stream stands
          // is not known
};

struct DeliveryState {
  DeliveryMode deliveryMode = DeliveryMode::kLive;
  std::uint64_t nextBlockNo = 1;  // the block that the next Read delivers
  std::uint64_t lastBlockNo = 0;  // the block delivered last; the position that GetPos hands out
  std::uint64_t checkpointBlockNo = kNoBlock;  // of the latest GetPos, or accepted by SetPos
  bool pipeEof = false;                        // the pipe has reported the end of the data
  bool eofReturned = false;                    // the host has been told
  StreamState stream = StreamState::kWhole;

  RunningDigest md5Running;
  // The digests at the two positions that SetPos can go back to.
  RunningDigest md5AtCheckpoint;
  RunningDigest md5AtFileFirst;
  // The latest block that came with the writer's end as error 109 or with a time-out; such a block
  // is in no signature, however often it is delivered.
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

// Takes a block read from the pipe into the running digest.
void coverPipeBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length,
                    const pipe::PipeRead& read);

// Takes a block replayed from the fallback file into the running digest, if it is not in it yet.
void coverReplayedBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length);

// Writes the pending block and notes the digest that belongs to the file's first block.
void writePending(Job& job, fallback::PendingWrite mode);

// Gives up a file that was taken over for a restart that the host does not ask for: its sync points
// are overwritten, the job goes on as a new one.
void dropRecovery(Job& job);

}  // namespace tallow::delivery
