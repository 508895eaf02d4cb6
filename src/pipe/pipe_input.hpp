// The pipe that a job reads from.
#pragma once

#include <string>

#include "config/options_record.hpp"
#include "pipe/unique_file_handle.hpp"

namespace tallow::pipe {

// Keeps the system timer at a period of one millisecond. Without it, a pause of 1 ms may last up to
// 15.6 ms. A refusal is ignored; the pauses are then longer.
class TimerPeriod {
 public:
  TimerPeriod() = default;
  ~TimerPeriod() { release(); }
  TimerPeriod(const TimerPeriod&) = delete;
  TimerPeriod& operator=(const TimerPeriod&) = delete;

  void request() noexcept;
  void release() noexcept;

 private:
  bool held_ = false;
};

struct PipeInput {
  UniqueFileHandle handle;
  TimerPeriod timerPeriod;  // held while the pipe is open

  void close() noexcept {
    handle.reset();
    timerPeriod.release();
  }
};

// Connects to the pipe as its reading client if it exists, else creates its inbound server end.
// Makes one attempt and does not wait: the reads wait for a writer. Raises
// kPipeNameIsDirectory, kPipeNotOpened (not a pipe name, or the system refused) or
// kPipeAlreadyOpen with return code 8.
void openPipe(PipeInput& pipe, const config::OptionsRecord& options, const std::string& name);

// A system error text, cut as the messages of this folder show it.
std::string shortSystemErrorText(unsigned long error);

}  // namespace tallow::pipe
