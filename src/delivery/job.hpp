// What Read, GetPos and SetPos share: the state of one job.
#pragma once

#include <cstdint>
#include <memory>

#include "config/options_record.hpp"
#include "fallback/fallback_file.hpp"
#include "fallback/md5.hpp"
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

// The MD5 of the data delivered so far. Remembers the last block that it covers, so that a block
// that is sent again is never added twice.
struct RunningDigest {
  fallback::Md5Context md5;
  std::uint64_t coveredBlockNo = 0;

  RunningDigest() { fallback::md5Init(md5); }
};

// The latest block read from the pipe. It is kept until the next request, so the fallback file is
// always one block behind the host.
struct PendingBlock {
  // blockSize bytes, filled with zeros so that no other data in memory reaches a file.
  explicit PendingBlock(std::uint64_t blockSize)
      : data(std::make_unique<std::uint8_t[]>(blockSize)) {}

  std::unique_ptr<std::uint8_t[]> data;
  std::uint32_t length = 0;          // valid bytes
  std::uint64_t blockNo = kNoBlock;  // kNoBlock: nothing to write
};

struct DeliveryState {
  DeliveryMode mode = DeliveryMode::kLive;
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
  explicit Job(const config::OptionsRecord& jobOptions)
      : options(jobOptions), fallback(jobOptions), pending(jobOptions.blockSize) {}

  const config::OptionsRecord& options;
  pipe::PipeInput pipe;
  fallback::FallbackFile fallback;
  PendingBlock pending;
  DeliveryState state;
};

// Adds a block that was read from the pipe to the running digest.
void coverPipeBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length,
                    const pipe::PipeRead& read);

// Adds a block that was replayed from the fallback file to the running digest, unless the digest
// already has it.
void coverReplayedBlock(Job& job, std::uint64_t blockNo, const void* data, std::uint32_t length);

// What a write of the pending block may do to the file's data area.
enum class PendingWrite {
  kMayStartArea,  // the block of the latest checkpoint starts it anew
  kOnlyAppend     // it is appended whatever its number: the first block is about to be replayed
};

// Writes the pending block if a checkpoint was taken and the file can continue with the block. If
// it becomes the file's first block, keeps the digest up to it.
void writePending(Job& job, PendingWrite mode);

// Gives up the restart from a file that was taken over, because the host does not ask for it. The
// file's sync points are overwritten and the job continues as a new one.
void dropRecovery(Job& job);

}  // namespace tallow::delivery
