// The rules of Open, Read, GetPos, SetPos, Close and the fallback file, written a second time and
// as simply as possible: the blocks of a job are a list, a signature is the digest of the blocks up
// to it, the file is a string. It knows nothing of how the module works.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "module/model/file_model.hpp"
#include "module/model/log_model.hpp"
#include "support/fallback_layout.hpp"
#include "support/pipe_script.hpp"

namespace tallow::test {

struct ModelOptions {
  std::size_t blockSize = 16;
  bool fullBlocks = true;
  int signatureCheck = 2;
  bool noFallback = false;
  bool preserve = false;            // PRESERVE_RESTART_INFO
  std::string pipeName;             // in full
  std::string directory;            // of the fallback file
  std::optional<std::string> file;  // Fallback_file; none: the file is found by its name
  bool inDirectory = true;          // the working directory is the fallback directory
};

class JobModel {
 public:
  struct Answer {
    std::uint32_t code = 0;
    std::string data;            // Read
    std::uint64_t position = 0;  // GetPos
  };

  // Open. If the model ends without a Close, the process has died.
  JobModel(DiskModel& disk, LogModel& log, const ModelOptions& options, PipeScript pipe);

  Answer read();
  Answer getPos();
  Answer setPos(std::uint64_t position, std::uint32_t length = 8);
  Answer close(bool closeR);

  const PipeScript& pipe() const { return pipe_; }
  std::uint64_t lastBlockNo() const { return last_; }
  std::uint64_t checkpoint() const { return checkpoint_; }
  bool canRestart() const { return mode_ == Mode::kRestartable; }
  std::array<std::uint64_t, 2> syncPointBlocks() const { return {older_.block, newer_.block}; }

  // What is needed to judge a job in which something failed.
  struct Block {
    std::string data;
    bool hashed;
  };
  const std::vector<Block>& blocks() const { return blocks_; }
  std::uint64_t nextBlockNo() const { return next_; }
  bool hasEnded() const { return pipeEnded_; }
  bool hasToldTheEnd() const { return endTold_; }
  bool isLost() const { return lost_; }
  bool hasHole() const { return hole_; }
  bool hasSignatures() const;
  const std::string& headerImage() const { return headerImage_; }
  const std::string& fileName() const { return file_; }
  const ModelOptions& options() const { return options_; }
  // The digest of the blocks up to one.
  std::string signatureOf(std::uint64_t block) const;

 private:
  enum class Mode { kLive, kRestartable, kReplaying };
  enum class Start { kMayStartAfresh, kAppend };
  struct PipeBlock {
    std::string data;
    bool end = false;
    bool hashed = true;
    unsigned error = 0;  // with which the pipe failed
  };
  enum class Skipped { kDone, kRefused, kLost };

  // Open
  void prepare();
  std::string header() const;
  bool takeOver(const std::string& file, bool named);
  bool acceptHeader(const std::string& image, bool named);

  // The file
  void seek(std::size_t offset);
  void put(std::string_view bytes);
  bool create();
  SyncPoint syncPointOf(std::uint64_t block) const;
  void writeSyncPoint(std::uint64_t block);
  void logSyncPoints(const std::string& what);
  void writePending(Start start);
  void dropRecovery(int messageId);
  std::size_t recordSize() const;
  std::size_t offsetOf(std::uint64_t block) const;

  // The pipe
  PipeBlock readPipe(bool full, std::uint64_t number);

  // Requests
  Answer replay();
  Answer endOfData();
  Answer deliver(const Block& block);
  Answer goBack(std::uint64_t position);
  Answer restart(std::uint64_t position);
  Skipped skipTo(std::uint64_t position);
  Answer raise(int messageId, std::uint32_t code = 34);
  bool canServe(std::uint64_t block) const;

  DiskModel& disk_;
  LogModel& log_;
  ModelOptions options_;
  PipeScript pipe_;

  std::string name_;  // as the module names it in its log
  std::string file_;  // the same without the directory
  bool isOpen_ = false;
  bool createPending_ = false;
  std::size_t at_ = 0;  // of the stream
  std::string headerImage_;
  SyncPoint older_;
  SyncPoint newer_;
  std::size_t expectedAt_ = kDataStart;

  Mode mode_ = Mode::kLive;
  bool lost_ = false;          // a restart has consumed the re-sent data
  bool hole_ = false;          // a Read failed after it had taken bytes
  std::vector<Block> blocks_;  // all that has been delivered, or dropped by a restart
  std::uint64_t last_ = 0;
  std::uint64_t next_ = 1;
  std::uint64_t fileFirst_ = kNoBlock;
  std::uint64_t fileLast_ = kNoBlock;
  std::uint64_t checkpoint_ = kNoBlock;
  std::uint64_t pending_ = kNoBlock;
  bool pipeEnded_ = false;
  bool endTold_ = false;
};

}  // namespace tallow::test
