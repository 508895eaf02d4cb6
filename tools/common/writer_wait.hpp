// --wait SECONDS: how long a program waits for the writer.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace tallow::tools {

// Adds the option. If it is not given, the value is 0: the wait has no end.
void addWaitOption(CLI::App& app, std::uint64_t& seconds);

class WriterWait {
 public:
  using Duration = std::chrono::steady_clock::duration;

  // Must be constructed before Open, because it checks whether the pipe exists already. `pipe` is
  // UTF-8.
  WriterWait(std::string pipe, std::uint64_t seconds);

  bool hasEnd() const noexcept { return seconds_ > 0; }
  // Whether a request that takes this many blocks out of the pipe has taken too long. Once there is
  // a writer, it may take the time for all of them, since the module does not say how many have
  // come.
  bool isOver(Duration taken, std::uint64_t blocks) const;
  // The outcome of the wait, in one line without a full stop.
  std::string text() const;

 private:
  bool isWriterThere() const;

  std::string pipe_;
  std::uint64_t seconds_;
  bool isServerEnd_;  // the module makes the pipe
};

}  // namespace tallow::tools
