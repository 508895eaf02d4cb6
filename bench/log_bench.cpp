// Log lines that the level suppresses, and lines that are written. The environment variable
// NPLOGDIR names the folder of the log.
#include <benchmark/benchmark.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/language_library.hpp"
#include "diag/log.hpp"
#include "diag/messages.hpp"

namespace {

using tallow::MessageId;
using tallow::diag::LogLevel;

void filteredTraceLine(benchmark::State& state) {
  unsigned long long blockNo = 0;
  while (state.KeepRunning()) {
    tallow::diag::log(LogLevel::kTrace, MessageId::kTrace,
                      "Read %d bytes from pipe for block no. %I64u.", 1048576, ++blockNo);
  }
}
BENCHMARK(filteredTraceLine);

void filteredMessage(benchmark::State& state) {
  while (state.KeepRunning()) {
    tallow::diag::logMessage<MessageId::kRestarted>(LogLevel::kPosition);
    benchmark::ClobberMemory();  // so that the level is read each time
  }
}
BENCHMARK(filteredMessage);

void writtenLine(benchmark::State& state) {
  unsigned long long blockNo = 0;
  while (state.KeepRunning()) {
    tallow::diag::log(LogLevel::kError, MessageId::kTrace,
                      "Read %d bytes from pipe for block no. %I64u.", 1048576, ++blockNo);
  }
}
BENCHMARK(writtenLine);

// The least that a written line costs.
void openWriteClose(benchmark::State& state) {
  const std::string path = std::string(std::getenv("NPLOGDIR")) + "\\floor.log";
  const char line[] =
      "Sat Nov 21 11:00:00 2026 320 Error 9999 Read 1048576 bytes from pipe for block no. 1234.\n";
  while (state.KeepRunning()) {
    std::FILE* file = std::fopen(path.c_str(), "a");
    std::fwrite(line, 1, std::strlen(line), file);
    std::fclose(file);
  }
}
BENCHMARK(openWriteClose);

}  // namespace

int main(int argc, char** argv) {
  if (std::getenv("NPLOGDIR") == nullptr) {
    std::fputs("log_bench: set NPLOGDIR to a folder\n", stderr);
    return 2;
  }
  // Sets up the log at level 2, as for the module.
  if (!tallow::diag::loadLanguageLibrary(L"")) return 1;
  tallow::diag::setUpLog("log_bench", "", nullptr);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
