// --wait SECONDS: how long a program waits for the writer.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace CLI {
class App;
}

namespace tallow::tools {

/// Adds the option; 0, where it is not given, is for ever.
void addWaitOption(CLI::App& app, std::uint64_t& seconds);

class WriterWait {
 public:
  using Duration = std::chrono::steady_clock::duration;

  /// To be made before Open: looks whether somebody has made the pipe already. `pipe` is UTF-8.
  WriterWait(std::string pipe, std::uint64_t seconds);

  bool hasEnd() const noexcept { return seconds_ > 0; }
  /// Whether a request that takes this many blocks out of the pipe has taken too long. It may take
  /// the time of as many once there is a writer: the module does not say how far it has come.
  bool isOver(Duration taken, std::uint64_t blocks) const;
  /// What the wait has come to, in one line without an end.
  std::string text() const;

 private:
  bool isWriterThere() const;

  std::string pipe_;
  std::uint64_t seconds_;
  bool isServerEnd_;  // the module makes the pipe
};

}  // namespace tallow::tools
