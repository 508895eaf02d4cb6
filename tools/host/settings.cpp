#include "host/settings.hpp"

#include "common/program.hpp"
#include "common/writer_process.hpp"
#include "common/writer_wait.hpp"

namespace tallow::host {
namespace {

using tools::MisuseError;

constexpr const char* kExamples = R"(Examples:
  Load a file, with one command:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --in export.csv
  Start the writer as well; its data is whole only if it ends with 0:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --writer "export --to {pipe}"
  Read a pipe to its end into a file, in blocks of 64 KB:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --init "Block_size=65536"
  The same with a log (every option of the module is given in --init):
    tallow-host --pipe \\.\pipe\orders --out orders.csv --init "Log_level=6 Log_directory=C:\logs"
  A job that can be restarted, with a checkpoint every 100 blocks:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --state orders.json --checkpoint-every 100
  Go on after it died (the writer sends its data again from the beginning):
    tallow-host --state orders.json --restart
  Go back to the second checkpoint once, and read on from the fallback file:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --checkpoint-every 10 --rewind 2
  One command line for every run: starts the job, goes on with it, or does nothing when it is done:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --in export.csv --state orders.json --resume
  Ask what an initialisation string does, without running anything:
    tallow-host --explain "Block_size=65536 nfb=no"
  Set attributes of the module:
    tallow-host --pipe \\.\pipe\orders --out - --attribute TIMEOUT_SECONDS=30 --init "nfb=no"

  Give up when no writer has come, or it has sent no block, for ten minutes:
    tallow-host --pipe \\.\pipe\orders --out orders.csv --state orders.json --wait 600

Ctrl-C stops a job that has a state file after its last whole block, with exit status 3.
With --json the outcome is one JSON object on standard output (on standard error with --out -);
docs/tools.md describes it.

Exit status: 0 done; 1 failed, nothing to restart from; 2 misused, nothing was started; 3 stopped,
the same restart may help now; 4 stopped, mend what the line says, then restart.)";

Attribute splitAttribute(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw MisuseError("--attribute " + text + " is not of the form NAME=VALUE");
  }
  return {text.substr(0, equals), text.substr(equals + 1)};
}

void requireNames(const Settings& settings) {
  const auto require = [](const std::optional<std::string>& name, const char* option) {
    if (name && name->empty()) throw MisuseError(std::string(option) + " has an empty name");
  };
  require(settings.pipe, "--pipe");
  require(settings.output, "--out");
}

void requireTogether(const Settings& settings) {
  if (settings.explain) return;
  const bool needsState = settings.restart || settings.resume || settings.startOver;
  if (needsState && settings.state.empty()) {
    throw MisuseError(
        "--restart, --resume and --new say what to do about a state file; name it with --state");
  }
  if (settings.resume && (settings.restart || settings.startOver)) {
    throw MisuseError("--resume decides by itself; leave --restart and --new out");
  }
  if (settings.attempts > 1 && !settings.resume) {
    throw MisuseError("--attempts tries again where the state file says; add --resume");
  }
  if (settings.attempts > 1 && settings.input == "-") {
    throw MisuseError("standard input can be sent only once; name a file with --in");
  }
  if (settings.restart && settings.startOver) {
    throw MisuseError("--restart goes on with a job and --new starts it over; choose one");
  }
  if (!settings.restart && !settings.resume && (!settings.pipe || !settings.output)) {
    throw MisuseError(std::string(settings.pipe ? "--out" : "--pipe") +
                      " is required; see tallow-host --help");
  }
  const bool checkpoints = settings.checkpointEvery != 0 || !settings.state.empty();
  if (settings.rewindAfter != 0 && !checkpoints) {
    throw MisuseError("--rewind goes back to a checkpoint; add --checkpoint-every BLOCKS");
  }
  if (settings.output == "-" && (!settings.state.empty() || settings.rewindAfter != 0)) {
    throw MisuseError("standard output cannot be cut back for --state or --rewind; name a file");
  }
}

}  // namespace

std::optional<tools::ExitStatus> readCommandLine(std::vector<std::string> arguments,
                                                 Settings& settings) {
  std::vector<std::string> attributes;
  CLI::App app("Reads a load job's data through the access module and writes its blocks to a file.",
               "tallow-host");
  tools::prepare(app, kExamples);
  app.add_option("--pipe", settings.pipe, "Name of the pipe, for example \\\\.\\pipe\\orders")
      ->option_text("NAME");
  app.add_option("--out", settings.output, "File for the data; - for standard output")
      ->option_text("FILE");
  app.add_option("--init", settings.init,
                 "Initialisation string: the module's options, for example \"Block_size=65536\"")
      ->option_text("STRING");
  app.add_option("--attribute", attributes,
                 "Attribute of the module, for example TIMEOUT_SECONDS=30; may be repeated")
      ->option_text("NAME=VALUE")
      ->expected(1)
      ->take_all();
  app.add_option("--module", settings.module,
                 "The module, for example D:\\tallow\\tallowin.dll (default: beside the program)")
      ->option_text("PATH");
  app.add_option("--checkpoint-every", settings.checkpointEvery,
                 "Take a checkpoint after every so many blocks, for example 100 (default: never; "
                 "with --state 64)")
      ->option_text("BLOCKS")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 62));
  app.add_option("--state", settings.state,
                 "File that keeps the last checkpoint, so that the job can be restarted, for "
                 "example orders.json")
      ->option_text("FILE")
      ->check(CLI::Validator(
          [](const std::string& name) {
            return name.empty() ? std::string("has an empty name") : std::string();
          },
          ""));
  app.add_flag("--restart", settings.restart,
               "Go on from the state file; everything that is not given again is taken from it");
  app.add_flag("--resume", settings.resume,
               "Start the job, go on with it, or do nothing if it is done, whatever the state file "
               "says: one command line for every run");
  app.add_option("--attempts", settings.attempts,
                 "With --resume: try so many times while the status is 3, with pauses of 1, 2, 4 "
                 "and at most 60 seconds, for example 10 (default 1)")
      ->option_text("NUMBER")
      ->check(CLI::Range(1, 1'000'000));
  app.add_flag("--new", settings.startOver, "Start over although a state file is there");
  app.add_option("--rewind", settings.rewindAfter,
                 "After so many checkpoints go back to the last one, once, for example 2")
      ->option_text("CHECKPOINTS")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 62));
  tools::addWriterOptions(app, settings.writer, settings.input);
  app.add_option("--expect-bytes", settings.expectBytes,
                 "Take the end of the data for the end only after so many bytes, for example "
                 "60000000")
      ->option_text("BYTES")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 62));
  tools::addWaitOption(app, settings.wait);
  app.add_flag("--close-r", settings.closeR, "End with CloseR, which never asks, instead of Close");
  app.add_flag("--json", settings.json, "Print the outcome as JSON");
  app.add_option("--explain", settings.explain,
                 "Print what each option of an initialisation string does, and end")
      ->option_text("STRING");
  if (const auto status = tools::parse(app, std::move(arguments))) return status;

  for (const std::string& attribute : attributes) {
    settings.attributes.push_back(splitAttribute(attribute));
  }
  requireNames(settings);
  requireTogether(settings);
  return std::nullopt;
}

}  // namespace tallow::host
