// The fallback file of a job: its state, positioning, creation and loss.
//
// After a failed write or seek there is no file any more: the stream is empty, and every later
// write is skipped. Open, a live Read and Close succeed without the file. GetPos fails if the
// stream cannot report its position; SetPos and a replay fail if they need the file.
#pragma once

#include <cstdint>
#include <string>

#include "config/options_record.hpp"
#include "fallback/fallback_format.hpp"
#include "fallback/file_stream.hpp"
#include "fallback/short_blocks.hpp"
#include "fallback/sync_points.hpp"

namespace tallow::fallback {

struct FallbackFile {
  std::string fallbackName;                   // path to open, create and remove it
  HeaderImage headerImage = {};               // the header block as written or read
  SyncPoints syncPoints = {};                 // the sync area as written or read
  FileStream fallbackFile;                    // empty: no file
  bool fallbackCreatePending = false;         // the first checkpoint creates the file
  std::uint64_t fileFirstBlockNo = kNoBlock;  // of the data area; kNoBlock: no record yet
  std::uint64_t fileLastBlockNo = kNoBlock;
  ShortBlocks shortBlocks;  // of the data area, if its records have no length field
  std::uint64_t expectedWritePos = kDataStartOffset;  // only shown in the log

  bool hasSignatures() const noexcept { return headerImage.signatureFlag != 0; }
};

inline RecordLayout recordLayout(const config::OptionsRecord& options) {
  return {options.blockSize, options.needFullBlock};
}

// Logs the offset and goes there. False without a stream or if the seek fails, which closes the
// stream.
bool seek(FallbackFile& file, std::uint64_t offset);

// The same without the log line.
bool seekSilently(FallbackFile& file, std::uint64_t offset);

// Creates or empties the file and writes its header block. True if both succeed; the file is then
// open.
bool create(FallbackFile& file, const config::OptionsRecord& options);

// Called after every failed write: closes the file, deletes it and logs message 51.
void handleWriteFailure(FallbackFile& file);

}  // namespace tallow::fallback
