#include "common/writer_wait.hpp"

#include <windows.h>

#include <utility>

#include "common/formatting.hpp"
#include "common/program.hpp"
#include "common/text.hpp"

namespace tallow::tools {
namespace {

bool isPipeThere(const std::string& name) {
  if (WaitNamedPipeW(toWide(name).c_str(), 1)) return true;
  const DWORD error = GetLastError();
  return error == ERROR_SEM_TIMEOUT || error == ERROR_PIPE_BUSY;
}

}  // namespace

void addWaitOption(CLI::App& app, std::uint64_t& seconds) {
  app.add_option("--wait", seconds,
                 "End when the writer takes longer than so many seconds for a block of data, also "
                 "for the first, for example 600 (default: wait for ever)")
      ->option_text("SECONDS")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{31'536'000}));
}

WriterWait::WriterWait(std::string pipe, std::uint64_t seconds)
    : pipe_(std::move(pipe)), seconds_(seconds), isServerEnd_(!isPipeThere(pipe_)) {}

bool WriterWait::isOver(Duration taken, std::uint64_t blocks) const {
  if (!hasEnd()) return false;
  const std::chrono::duration<double> one(static_cast<double>(seconds_));
  return taken >= one && (taken >= one * static_cast<double>(blocks) || !isWriterThere());
}

std::string WriterWait::text() const {
  const std::string time = formatCount(seconds_, "second");
  if (!isWriterThere()) return "no writer has come to " + pipe_ + " within " + time;
  return "the writer at " + pipe_ + " took longer than " + time + " for a block";
}

// While nobody has connected to a pipe, it still accepts a connection.
bool WriterWait::isWriterThere() const {
  return !isServerEnd_ || !WaitNamedPipeW(toWide(pipe_).c_str(), 1);
}

}  // namespace tallow::tools
