// tallow-load: loads a pipe's rows into a database table, each exactly once.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/formatting.hpp"
#include "common/program.hpp"
#include "common/progress.hpp"
#include "load/command_line.hpp"
#include "load/job/loader.hpp"
#include "load/secrets.hpp"
#include "load/target/call_watch.hpp"
#include "load/target/way.hpp"

namespace tallow::load {
namespace {

using nlohmann::ordered_json;
using tools::ExitStatus;
using tools::formatCount;

// How a run ended.
struct Ending {
  ExitStatus status = ExitStatus::kDone;
  std::string error;
  double seconds = 0;
};

// The command to run next. Empty if that would not help.
std::string nextCommand(const LoadOptions& options, const LoadReport& report,
                        const Ending& ending) {
  const bool helps =
      ending.status == ExitStatus::kRestartable || ending.status == ExitStatus::kMendFirst;
  if (!helps) return {};
  return report.nothingBegun ? options.sameCommand : options.restartCommand;
}

void printJson(const LoadOptions& options, const LoadReport& report, const Ending& ending) {
  const JobProgress& progress = report.progress;
  ordered_json outcome = {{"status", tools::statusWord(ending.status)},
                          {"job", options.job},
                          {"rows", progress.rows},
                          {"rejects", progress.rejects},
                          {"bytes", progress.bytes},
                          {"position", progress.position},
                          {"rowsOfThisRun", progress.rows - report.rowsBefore},
                          {"reconnections", report.reconnections},
                          {"rewinds", report.rewinds},
                          {"seconds", ending.seconds},
                          {"lastRowEndsWithLineBreak", nullptr}};
  if (report.endsWithLineBreak) outcome["lastRowEndsWithLineBreak"] = *report.endsWithLineBreak;
  if (!ending.error.empty()) outcome["error"] = ending.error;
  if (const std::string command = nextCommand(options, report, ending); !command.empty()) {
    outcome["restart"] = command;
  }
  std::printf("%s\n", outcome.dump(2, ' ', false, ordered_json::error_handler_t::replace).c_str());
}

void printSummary(const LoadReport& report, const Ending& ending) {
  const JobProgress& progress = report.progress;
  if (report.wasDone) std::printf("the job was done already\n");
  std::printf("%s from %llu bytes are in the table, %s\n",
              formatCount(progress.rows, "row").c_str(),
              static_cast<unsigned long long>(progress.bytes),
              progress.rejects == 0 ? "none rejected"
                                    : (formatCount(progress.rejects, "row") + " rejected").c_str());
  if (report.endsWithLineBreak) {
    std::printf("the last row %s\n", *report.endsWithLineBreak
                                         ? "ended with a line break"
                                         : "had no line break: check that the writer had finished");
  }
  const std::uint64_t rows = progress.rows - report.rowsBefore;
  if (!report.wasDone && ending.seconds > 0) {
    std::printf(
        "%s in %s (%s rows/s)\n", formatCount(rows, "row").c_str(),
        tools::formatDuration(ending.seconds).c_str(),
        std::to_string(static_cast<std::uint64_t>(static_cast<double>(rows) / ending.seconds))
            .c_str());
  }
  if (report.reconnections > 0) {
    std::printf("connected again %s\n", formatCount(report.reconnections, "time").c_str());
  }
}

std::string pulseText(const LoadPulse& pulse) {
  return formatCount(pulse.rows, "row") + ", " + formatCount(pulse.rejects, "reject") +
         ", checkpoint at block " + std::to_string(pulse.checkpoint);
}

void printRestart(const std::string& command) {
  const bool hidden = command.find("***") != std::string::npos;
  tools::writeToStandardError(
      (hidden ? "go on, the password in place of ***, with: " : "go on with: ") + command + "\n");
}

// Whether there is a job that a restart could continue.
std::atomic<bool> begun = false;

std::string restartCommand;  // set before onInterrupt can be called

// Ctrl-C ends the process like any other death. The database needs no notice.
BOOL WINAPI onInterrupt(DWORD /*event*/) {
  const bool restartable = begun;
  tools::printError(restartable
                        ? "interrupted; what was not committed is undone, and --restart goes on"
                        : "interrupted before the load began");
  if (restartable) printRestart(restartCommand);
  const ExitStatus status = restartable ? ExitStatus::kRestartable : ExitStatus::kFailed;
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
  return TRUE;
}

void printEnding(const LoadOptions& options, const LoadReport& report, const Ending& ending) {
  if (!ending.error.empty()) tools::printError(ending.error);
  if (options.json) {
    printJson(options, report, ending);
  } else if (ending.status == ExitStatus::kDone) {
    printSummary(report, ending);
  }
  const std::string command = nextCommand(options, report, ending);
  if (!command.empty()) printRestart(command);
}

// One statement may wait for a lock for half of the time in which the load tries again.
Destination destinationOf(const LoadOptions& options) {
  const std::chrono::milliseconds wait(options.retrySeconds * 500ULL);
  return {options.connection,
          std::clamp<std::chrono::milliseconds>(wait, std::chrono::seconds(1),
                                                std::chrono::seconds(30)),
          "tallow-load " + options.job + " " + options.settings.pipe, options.libpqFile,
          [](const std::string& text) { tools::printError("the database notes: " + text); }};
}

// One run of the load, and how it ends: by itself, or because the writer or the database keeps it
// waiting for too long. In that case a watching thread ends the process, because no other way is
// certain to work, and the position of the load survives it.
class Run {
 public:
  explicit Run(const LoadOptions& options)
      : options_(options),
        mask_(options.connection),
        writer_({options.settings.pipe, options.waitSeconds},
                [this](const std::string& text) { endProcess(text); }),
        loader_(options, wayTo(destinationOf(options)), events(), writer_) {
    // A database inside this process keeps its own time limits, and a second thread makes it
    // slower.
    if (isEmbedded(options.connection)) return;
    const unsigned seconds = options.retrySeconds + kPatience;
    database_.emplace(std::chrono::seconds(seconds), [this, seconds] {
      endProcess("the database has not answered for " + std::to_string(seconds) +
                 " seconds; see whether its server works, and whether another program holds a lock "
                 "there");
    });
  }

  Ending load() {
    progress_.waitFor("connecting to the database");
    try {
      loader_.run();
      return {ExitStatus::kDone, {}, seconds()};
    } catch (const tools::ToolError& error) {
      return endingBy(error);
    }
  }

  LoadReport report() const { return loader_.report(); }

 private:
  static constexpr unsigned kPatience = 30;  // seconds after those of --retry

  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

  Ending endingBy(const tools::ToolError& error) const {
    return {error.status(), mask_(error.what()), seconds()};
  }

  LoadEvents events() {
    return {[this](const LoadPulse& pulse) { show(pulse); },
            [this](const std::string& what) {
              begun = true;
              progress_.waitFor(what);
            }};
  }

  void show(const LoadPulse& pulse) {
    begun = true;
    if (!std::exchange(counts_, true)) progress_.startAt(pulse.bytes, pulse.block);
    progress_.update(pulse.bytes, pulse.block);
    progress_.setDetail([&] { return pulseText(pulse); });
  }

  void endProcess(const std::string& reason) const {
    const Ending ending = endingBy(loader_.ending(reason, ExitStatus::kRestartable));
    printEnding(options_, report(), ending);
    std::fflush(nullptr);
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ending.status));
  }

  const LoadOptions& options_;
  SecretMask mask_;
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  tools::Progress progress_{"loaded", std::nullopt};
  bool counts_ = false;  // what the run adds is counted from the first pulse on
  WriterWatch writer_;
  Loader loader_;
  std::optional<CallWatch> database_;
};

ExitStatus run(const std::vector<std::string>& arguments) {
  LoadOptions options;
  if (const auto status = readCommandLine(arguments, options)) return *status;
  restartCommand = options.restartCommand;
  begun = options.mode == RunMode::kRestart;
  SetConsoleCtrlHandler(onInterrupt, TRUE);

  Ending ending;
  LoadReport report;
  {
    Run run(options);
    ending = run.load();
    report = run.report();
  }
  printEnding(options, report, ending);
  return ending.status;
}

}  // namespace
}  // namespace tallow::load

int wmain(int argc, wchar_t** argv) {
  return tallow::tools::runProgram("tallow-load", argc, argv, tallow::load::run);
}
