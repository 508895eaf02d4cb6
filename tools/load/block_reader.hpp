// The job's blocks, read on a thread of their own while the rows of the one before are loaded.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "load/block_stream.hpp"
#include "load/worker_thread.hpp"

namespace tallow::load {

/// A BlockStream whose requests all come from one thread, as the module wants it. At most one
/// block is read ahead, and only when asked for: what follows a checkpoint must not be read before
/// its commit, since the fallback file then lets go of the blocks before it.
class BlockReader {
 public:
  /// As BlockStream; throws what it throws. Without `ahead` there is no thread, and nothing is read
  /// before read() asks for it.
  BlockReader(const std::string& modulePath, const std::string& initString, const std::string& pipe,
              bool ahead);
  /// Gives up a read that is under way.
  ~BlockReader();
  BlockReader(const BlockReader&) = delete;
  BlockReader& operator=(const BlockReader&) = delete;

  /// The next block, valid until the next read() returns; nothing at the end of the data.
  std::optional<std::string_view> read();
  /// Begins to read the block that the next read() returns, if blocks are read ahead at all.
  void readAhead();
  /// Forgets the block that was read ahead, once it is there; whether there was one. A failure to
  /// read it is thrown, since the data may be lost to the pipe.
  bool dropReadAhead();

  /// These must not be called while a block is read ahead.
  std::uint64_t getPos();
  void setPos(std::uint64_t position);
  void finish();

 private:
  /// Does the work on the thread, if there is one, and waits for it.
  void run(const std::function<void()>& work);
  void waitForAhead();

  std::optional<BlockStream> stream_;      // the thread's own
  std::optional<std::string_view> block_;  // that the latest read has brought
  bool ahead_ = false;                     // a read is under way
  std::optional<WorkerThread> thread_;
};

}  // namespace tallow::load
