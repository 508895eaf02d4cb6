// A writer that a program starts by itself: --writer "COMMAND" and --in FILE.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "common/unique_handle.hpp"

namespace CLI {
class App;
}

namespace tallow::tools {

// Adds --writer and --in, of which one may be given.
void addWriterOptions(CLI::App& app, std::string& command, std::string& inputFile);

// The command that sends the file ("-": standard input) with the tallow-feed beside the program.
std::string feedCommand(const std::string& inputFile, const std::string& pipe);

// While nobody has opened the pipe, the module waits for that, and nothing can interrupt it. This
// opens the pipe and closes it again, so that the module sees an end without data. Returns false
// and does nothing if somebody has opened it.
bool releaseModule(const std::string& pipe);

// Starts the writer, passes on what it says, and knows how it ended. The writer and all that it
// starts are in a job object, so they end with this program, however that ends; if the system gives
// no job object, only the writer itself is ended, by the destructor.
//
// What the writer writes to standard error and standard output goes to our standard error line by
// line, with the writer's name in front. Ctrl-C does not reach it.
class WriterProcess {
 public:
  // Starts the command once the pipe is there. In the command "{pipe}" stands for the pipe's name;
  // its environment has the name as TALLOW_PIPE. All texts are UTF-8. Throws ToolError (kMendFirst)
  // if the command cannot be started.
  WriterProcess(const std::string& command, std::string pipe);
  // Ends the writer if it still runs.
  ~WriterProcess();
  WriterProcess(const WriterProcess&) = delete;
  WriterProcess& operator=(const WriterProcess&) = delete;

  // Whether it has ended within the time. If so, all that it has said has been passed on.
  bool hasEnded(std::chrono::milliseconds patience = {});

  // Why the data is not whole, in one line without a full stop. Empty if it is. The writer must
  // have ended. `neverCame`: it has not opened the pipe.
  std::string fault(bool neverCame) const;
  // "the writer NAME"
  std::string title() const { return "the writer " + name_; }

 private:
  void start(const std::string& command);
  void passOn();
  void passOnLine(std::string line);
  void end() noexcept;

  std::string pipe_;
  std::string name_;
  UniqueHandle job_;
  UniqueHandle process_;
  UniqueHandle said_;  // the reading end of what the writer says
  UniqueHandle allSaid_;
  std::uint64_t linesPassedOn_ = 0;
  std::uint64_t linesLeftOut_ = 0;
  std::string lastLine_;
  mutable std::mutex mutex_;  // guards the last line
  std::thread listener_;
};

}  // namespace tallow::tools
