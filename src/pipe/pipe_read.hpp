// Taking one block of data from the pipe.
#pragma once

#include <cstdint>

#include "config/options_record.hpp"
#include "pipe/pipe_input.hpp"

namespace tallow::pipe {

// How a read ended.
struct PipeRead {
  bool end;   // the data has ended: the writer closed, sent nothing, or let the time run out
  bool hash;  // the block belongs to the signature. The interface requires that it does not if the
              // read ended with error 109 or the time-out. Whenever the data is sent again, this
              // is decided the same way.
};

// Both reads put the bytes at the beginning of buffer, which holds options.blockSize bytes, and
// count them in bytesRead, which is correct even if they raise a failure. Both raise
// kPipeNotOpen if the pipe is not open. blockNo is only for the log.

// Reads until the block is full or the data ends, waiting as long as it takes. Raises
// kPipeReadFailed when the system refuses to read.
PipeRead readFullBlock(PipeInput& pipe, const config::OptionsRecord& options, void* buffer,
                       std::uint32_t& bytesRead, std::uint64_t blockNo);

// Reads what the writer has sent. While that is nothing it pauses, longer each time, until the
// time-out if one is set. With a time-out, anything but a full block in one piece ends the data.
PipeRead readAvailable(PipeInput& pipe, const config::OptionsRecord& options, void* buffer,
                       std::uint32_t& bytesRead, std::uint64_t blockNo);

}  // namespace tallow::pipe
