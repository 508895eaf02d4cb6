// The pipe that a job reads from.
#pragma once

#include <string>

#include "config/options_record.hpp"
#include "pipe/timer_period.hpp"
#include "pipe/unique_handle.hpp"

namespace tallow::pipe {

struct PipeInput {
  UniqueHandle pipeHandle;
  TimerPeriod timerPeriod;  // held while the pipe is open

  void close() noexcept {
    pipeHandle.close();
    timerPeriod.release();
  }
};

// Connects to the pipe as its reading client if it exists, else creates its inbound server end.
// Makes one attempt and does not wait: the reads wait for a writer. Raises message 89 (a
// directory), 45 (not a pipe name, or the system refused) or 8 with return code 8 (already open).
void openPipe(PipeInput& pipe, const config::OptionsRecord& options, const std::string& name);

// A system error text, cut as the messages of this folder show it.
std::string shortSystemErrorText(unsigned long error);

}  // namespace tallow::pipe
