// tallow-feed: writes a file or its standard input into a named pipe.
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/formatting.hpp"
#include "common/pipe_names.hpp"
#include "common/program.hpp"
#include "common/progress.hpp"
#include "feed/input_stream.hpp"
#include "feed/pipe_writer.hpp"

namespace tallow::feed {
namespace {

using tools::ExitStatus;

constexpr const char* kExamples = R"(Examples:
  Wait for the host to create the pipe, then send a file:
    tallow-feed --pipe \\.\pipe\orders --in orders.csv
  Send what another program writes, waiting at most ten minutes for the host:
    export-orders | tallow-feed --pipe \\.\pipe\orders --in - --wait 600
  Create the pipe here, so that the module connects to it:
    tallow-feed --pipe \\.\pipe\orders --in orders.csv --serve
  The same for a host that runs under another account:
    tallow-feed --pipe \\.\pipe\orders --in orders.csv --serve --allow "DOMAIN\loader"

With --json: {"pipe": text, "bytes": number, "seconds": number} on standard output.

Exit status: 0 everything was written; 1 failed on the way; 2 misused, nothing was sent; 3 nobody
was at the other end in time, nothing was sent: the same call may help now.)";

struct Settings {
  std::string pipe;
  std::string input;
  std::size_t chunk = std::size_t{1} << 20;
  unsigned waitSeconds = 60;
  bool serve = false;
  std::string allowed;
  bool json = false;
};

std::optional<ExitStatus> readCommandLine(std::vector<std::string> arguments, Settings& settings) {
  CLI::App app("Writes a file into a named pipe, as the writer of a load job does.", "tallow-feed");
  tools::prepare(app, kExamples);
  app.add_option("--pipe", settings.pipe, "Name of the pipe, for example \\\\.\\pipe\\orders")
      ->required()
      ->option_text("NAME");
  app.add_option("--in", settings.input,
                 "File to send, for example orders.csv; - for standard input")
      ->required()
      ->option_text("FILE");
  app.add_option("--chunk", settings.chunk,
                 "Bytes for each write, for example 65536 (default 1048576)")
      ->option_text("BYTES")
      ->check(CLI::Range(1, 1 << 26));
  app.add_option("--wait", settings.waitSeconds,
                 "Seconds to wait for the other end of the pipe, for example 600 (default 60)")
      ->option_text("SECONDS")
      ->check(CLI::Range(0, 1'000'000));
  CLI::Option* const serve = app.add_flag(
      "--serve", settings.serve,
      "Create the pipe instead of waiting for it: the module then connects to it. Only "
      "this account on this machine may read it");
  app.add_option("--allow", settings.allowed,
                 "With --serve: an account or group that may read the pipe too, for example "
                 "\"DOMAIN\\loader\"")
      ->option_text("ACCOUNT")
      ->needs(serve);
  app.add_flag("--json", settings.json, "Print the outcome as JSON");
  if (const auto status = tools::parse(app, std::move(arguments))) return status;
  tools::requirePipeName(settings.pipe);
  return std::nullopt;
}

PipeWriter openPipe(const Settings& settings) {
  const tools::Progress progress("waiting for the other end of " + settings.pipe);
  const std::chrono::milliseconds patience = std::chrono::seconds(settings.waitSeconds);
  return settings.serve ? PipeWriter::serve(settings.pipe, settings.allowed, patience)
                        : PipeWriter::connect(settings.pipe, patience);
}

ExitStatus run(std::vector<std::string> arguments) {
  Settings settings;
  if (const auto status = readCommandLine(std::move(arguments), settings)) return *status;

  InputStream input(settings.input);
  PipeWriter pipe = openPipe(settings);
  const auto start = std::chrono::steady_clock::now();
  std::vector<std::byte> buffer(settings.chunk);
  std::uint64_t bytes = 0;
  {
    tools::Progress progress("sent", input.size());
    while (const std::size_t length = input.read(buffer)) {
      pipe.write(std::span(buffer).first(length));
      progress.update(bytes += length, 0);
    }
    pipe.finish();
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  if (settings.json) {
    const nlohmann::ordered_json outcome = {
        {"pipe", settings.pipe}, {"bytes", bytes}, {"seconds", elapsed.count()}};
    std::printf("%s\n", outcome.dump(2).c_str());
  } else if (tools::standardErrorIsTerminal()) {
    std::fprintf(stderr, "sent %s in %s (%s)\n", tools::formatBytes(bytes).c_str(),
                 tools::formatDuration(elapsed.count()).c_str(),
                 tools::formatRate(bytes, elapsed.count()).c_str());
  }
  return ExitStatus::kDone;
}

}  // namespace
}  // namespace tallow::feed

int wmain(int argc, wchar_t** argv) {
  return tallow::tools::runProgram("tallow-feed", argc, argv, tallow::feed::run);
}
