// The job's data, block by block, as the module delivers it: each block is read on a separate
// thread while the rows of the block before are loaded.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/module.hpp"
#include "load/job/worker_thread.hpp"

namespace tallow::load {

// One pipe that the module has opened. The fallback file is kept, whatever was read, unless
// finish() was called.
class BlockStream {
 public:
  // `initString` and `pipe` are UTF-8. Throws client::RequestFailed.
  BlockStream(const std::string& modulePath, const std::string& initString,
              const std::string& pipe);

  // The next block, valid until the next call but one. None at the end of the data.
  std::optional<std::string_view> read();
  std::uint64_t getPos() { return instance_->getPos(); }
  void setPos(std::uint64_t position) { instance_->setPos(position); }
  // Ends a job that is done: closes the pipe, and the module deletes the fallback file.
  void finish();

 private:
  client::Module module_;
  void* handle_ = nullptr;
  std::optional<client::Instance> instance_;
  std::array<std::vector<std::byte>, 2> buffers_;  // used in turn
};

// A BlockStream whose requests all come from one thread, as the module requires. It reads at most
// one block ahead, and only on request: what follows a checkpoint must not be read before the
// checkpoint's commit, because the fallback file gives up the earlier blocks then.
class BlockReader {
 public:
  // Like BlockStream's constructor, and throws what that throws. Without `ahead` there is no
  // thread, and a block is read only when read() asks for it.
  BlockReader(const std::string& modulePath, const std::string& initString, const std::string& pipe,
              bool ahead);
  // Cancels a read that has begun.
  ~BlockReader();
  BlockReader(const BlockReader&) = delete;
  BlockReader& operator=(const BlockReader&) = delete;

  // The next block, valid until the next read() returns. None at the end of the data.
  std::optional<std::string_view> read();
  // Begins to read the block that the next read() will return, if blocks are read ahead at all.
  void readAhead();
  // Waits for the block that is read ahead, if there is one, and forgets it. Returns whether there
  // was one. If it could not be read, that is thrown, because its data may be lost to the pipe.
  bool dropReadAhead();

  // These must not be called while a block is read ahead.
  std::uint64_t getPos();
  void setPos(std::uint64_t position);
  void finish();

 private:
  // Does the work on the thread, if there is one, and waits until it is done.
  void run(const std::function<void()>& work);
  void waitForAhead();

  std::optional<BlockStream> stream_;      // used by that thread only
  std::optional<std::string_view> block_;  // that the latest read returned
  bool ahead_ = false;                     // a read ahead has begun
  std::optional<WorkerThread> thread_;
};

}  // namespace tallow::load
