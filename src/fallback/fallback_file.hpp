// The fallback file of a job: the story of its life, from Open to Close.
//
// After a failed write or seek there is no file any more: the stream is closed, and every later
// write is skipped. Open, a live Read and Close succeed without the file. A checkpoint fails only
// if the stream cannot report its position; SetPos and a replay fail if they need the file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config/options_record.hpp"
#include "fallback/fallback_format.hpp"
#include "fallback/file_stream.hpp"
#include "fallback/short_blocks.hpp"

namespace tallow::fallback {

// A block of the job's data on its way into the file.
struct Block {
  std::uint64_t number;
  const void* data;      // the job's block size in bytes, all of which are written
  std::uint32_t length;  // the valid ones
};

// Where the data area continues.
enum class Place {
  kStart,     // the block becomes the first one; those before it are given up
  kAfterLast  // the block follows the last one, or becomes the first one if there is none
};

// Whether Close may ask the user before it deletes the file.
enum class CloseKind { kMayAsk, kNeverAsks };

class FallbackFile {
 public:
  // The options must outlive the object.
  explicit FallbackFile(const config::OptionsRecord& options) : options_(options) {}

  // Decides the file's name. True if a file that an earlier run of the job has left is taken over:
  // the header and the sync points are then those of the file, and the stream is at the start of
  // the data area (or closed, if it could not be positioned). Otherwise the first checkpoint
  // creates the file, if a name is free.
  bool prepare(const std::string& pipeName);

  bool isOpen() const noexcept { return static_cast<bool>(stream_); }
  const std::string& name() const noexcept { return name_; }
  bool hasSignatures() const noexcept { return header_.signatureFlag != 0; }

  // The blocks of the data area that can be replayed; kNoBlock if there are none.
  std::uint64_t firstBlockNo() const noexcept { return firstBlockNo_; }
  std::uint64_t lastBlockNo() const noexcept { return lastBlockNo_; }

  // Checkpoints. The signature of a sync point covers all data in running.

  // Creates the file with an empty pair of sync points, if prepare has left that to the first
  // checkpoint.
  void createIfPending();

  // Gives up the restart from the file that was taken over: empties its pair of sync points.
  void dropRecovery();

  // Makes sure that the file exists, if it can, and has the sync point of the block. Raises
  // kFallbackTellFailed if the stream cannot report its position.
  void checkpoint(std::uint64_t blockNo, const Md5Context& running);

  // The sync point of a block; null if there is none.
  const SyncPoint* syncPointOf(std::uint64_t blockNo) const;

  // Records.

  // True if the file is open and the block is the next one in unbroken order.
  bool canAppend(std::uint64_t blockNo) const noexcept;

  // Writes the record of a block that can be appended. True if it became the first one of the data
  // area. A failure is reported in the log only.
  bool append(const Block& block, Place place);

  // Goes to the record of a block. Raises kFallbackFileUnusable if that fails.
  void beginReplay(std::uint64_t blockNo);

  // Reads the record of the next block to be replayed into buffer, which holds a whole block, and
  // returns the block's length. Nothing if there is no file or the record is incomplete or invalid;
  // the stream is then at the record's start. Raises kFallbackTellFailed if the stream cannot
  // report its position, and kFallbackSeekFailed if it cannot go to the record.
  std::optional<std::uint32_t> readBlock(std::uint64_t blockNo, void* buffer);

  // If the block is the last one, goes to where the next one will be appended and returns true.
  bool endReplayAt(std::uint64_t blockNo);

  // The restart from a file that was taken over.

  // Makes sure that the file has a length where a restart looks up that of the block. Only whether
  // it has one matters: the pipe read fills whole blocks whatever the length is. Raises
  // kFallbackTellFailed, kFallbackSeekFailed and, if there is no length, kFallbackLengthUnreadable.
  // Does nothing with full blocks.
  void lookUpLength(std::uint64_t blockNo);

  // The restart is refused because the re-sent data differs: goes to the sync area. Raises
  // kFallbackFileUnusable with return code 16 if that fails.
  void refuseRestart();

  // The restart is accepted: the next block that is appended becomes the first one.
  void acceptRestart() noexcept { forgetRecords(); }

  // The end.

  void close() noexcept { stream_.close(); }

  // Deletes the file of a job that has consumed all its data, unless the user or the attribute
  // PRESERVE_RESTART_INFO keeps it. The file must be closed.
  void removeFinished(CloseKind kind) const;

 private:
  RecordLayout layout() const noexcept { return {options_.blockSize, options_.needFullBlock}; }
  std::uint64_t offsetOf(std::uint64_t blockNo) const noexcept;
  bool create();
  SyncPoint syncPointAt(std::uint64_t blockNo, const Md5Context& running) const;
  bool isNewest(const SyncPoint& point) const;
  bool writeSyncArea(const SyncPoint& point);
  bool seek(std::uint64_t offset);
  void giveUp();
  void logRecord(const Block& block);
  bool writeRecord(const Block& block);
  std::optional<std::uint32_t> readRecord(std::uint64_t blockNo, void* buffer);
  void forgetRecords() noexcept;

  const config::OptionsRecord& options_;
  std::string name_;            // path to open, create and remove it
  FileStream stream_;           // empty: no file
  HeaderImage header_ = {};     // the header block as written or read
  SyncPoints syncPoints_ = {};  // the sync area as written or read
  bool createPending_ = false;  // the first checkpoint creates the file
  std::uint64_t firstBlockNo_ = kNoBlock;
  std::uint64_t lastBlockNo_ = kNoBlock;  // kNoBlock exactly when firstBlockNo_ is
  ShortBlocks shortBlocks_;               // of the data area, if its records have no length field
  std::uint64_t expectedWritePos_ = kDataStartOffset;  // only shown in the log
};

}  // namespace tallow::fallback
