// tallow-inspect: shows what a fallback file holds, and what a restart would accept.
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "common/output_file.hpp"
#include "common/program.hpp"
#include "common/text.hpp"
#include "inspect/report.hpp"

namespace tallow::inspect {
namespace {

using tools::ExitStatus;
using tools::MisuseError;
using tools::ToolError;

constexpr const char* kExamples = R"(Examples:
  Show a fallback file:
    tallow-inspect orders.json.fbf
  Prove against the job's data what each record holds and whether the signatures are right:
    tallow-inspect orders.json.fbf --verify orders.csv
  Take the data of the third record out (slots count from 0):
    tallow-inspect orders.json.fbf --extract 2 > block.bin

The file does not say whether Need_Full_Block was on, which block comes first, or where fresh
records end and older ones begin. What is supposed is marked "guess"; what --verify
shows, "proved".

In the picture, N and O are the records of the newer and the older sync point, = others, + cut
short; proved by --verify: ~ left over from before, ! damaged, ? no block of the data.

With --json: one JSON object on standard output; docs/tools.md describes it.

Exit status: 0 a sound file; 1 damaged, foreign, unreadable or disproved; 2 misused, or there is no
such file.)";

struct Settings {
  std::string file;
  std::string verifyInput;
  std::string fullBlocks;
  std::optional<std::uint64_t> first;
  std::optional<std::uint64_t> extract;
  bool json = false;
};

std::optional<ExitStatus> readCommandLine(std::vector<std::string> arguments, Settings& settings) {
  CLI::App app("Shows what a fallback file holds and what a restart would accept.",
               "tallow-inspect");
  tools::prepare(app, kExamples);
  app.add_option("FILE", settings.file, "The fallback file")->required()->option_text(" ");
  app.add_flag("--json", settings.json, "Print everything as JSON");
  app.add_option("--full-blocks", settings.fullBlocks,
                 "Whether the job ran with Need_Full_Block; guessed when not given")
      ->option_text("on|off")
      ->check(CLI::IsMember({"on", "off"}));
  app.add_option("--first", settings.first,
                 "Number of the block in the first record; guessed when not given")
      ->option_text("N")
      ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 62));
  app.add_option("--verify", settings.verifyInput, "The job's whole data, to prove what can be")
      ->option_text("INPUT");
  app.add_option("--extract", settings.extract,
                 "Write the valid bytes of one record to standard output, and nothing else")
      ->option_text("SLOT")
      ->check(CLI::NonNegativeNumber);
  return tools::parse(app, std::move(arguments));
}

std::ifstream openFile(const std::string& path) {
  const std::filesystem::path native = tools::toWide(path);
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(native, error);
  if (std::filesystem::is_directory(status)) {
    throw MisuseError(path + " is a folder; name a file");
  }
  if (status.type() == std::filesystem::file_type::not_found) {
    throw MisuseError("there is no file " + path + "; check the name");
  }
  std::ifstream file(native, std::ios::binary);
  if (!file) throw ToolError("cannot read " + path + "; check who may read it, and who holds it");
  return file;
}

void extract(const Subject& subject, std::istream& stream, std::uint64_t slot) {
  const FileImage& file = subject.file;
  if (file.state != FileState::kValid) throw ToolError(subject.name + ": " + file.finding);
  if (slot >= file.slotCount) {
    throw ToolError("there is no slot " + std::to_string(slot) + "; the file has " +
                    std::to_string(file.slotCount) + ", counted from 0");
  }
  std::string data = readRecordData(stream, file, slot);
  if (const auto length = readRecordLength(stream, file, slot)) {
    if (*length > data.size()) {
      throw ToolError("slot " + std::to_string(slot) +
                      " is damaged: its length cannot be right; --full-blocks on takes the bytes "
                      "as they are");
    }
    data.resize(*length);
  }
  tools::OutputFile::standardOutput().write(std::as_bytes(std::span(data)));
}

// Replaces what was supposed with what is now proved.
void adoptProofs(Subject& subject) {
  if (subject.verification->freshSlots == 0) return;
  subject.file.shape = {subject.file.shape.fullBlocks, Certainty::kProved, {}};
  subject.file.first = {subject.verification->firstBlock, Certainty::kProved, {}};
}

Colour colourOfStandardOutput() {
  DWORD mode = 0;
  const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
  if (!GetConsoleMode(output, &mode)) return Colour::kNo;
  return SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) ? Colour::kYes
                                                                           : Colour::kNo;
}

ExitStatus run(std::vector<std::string> arguments) {
  Settings settings;
  if (const auto status = readCommandLine(std::move(arguments), settings)) return *status;

  Hints hints;
  if (!settings.fullBlocks.empty()) hints.fullBlocks = settings.fullBlocks == "on";
  hints.firstBlock = settings.first;
  std::ifstream stream = openFile(settings.file);
  Subject subject{settings.file, readFallbackFile(stream, hints), std::nullopt};
  if (settings.extract) {
    extract(subject, stream, *settings.extract);
    return ExitStatus::kDone;
  }
  if (!settings.verifyInput.empty() && subject.file.state == FileState::kValid) {
    std::ifstream input = openFile(settings.verifyInput);
    subject.verification = verify(stream, subject.file, input);
    adoptProofs(subject);
  }
  if (settings.json) {
    printJson(subject, stream);
  } else {
    printText(subject, stream, colourOfStandardOutput());
  }
  return isSound(subject) ? ExitStatus::kDone : ExitStatus::kFailed;
}

}  // namespace
}  // namespace tallow::inspect

int wmain(int argc, wchar_t** argv) {
  return tallow::tools::runProgram("tallow-inspect", argc, argv, tallow::inspect::run);
}
