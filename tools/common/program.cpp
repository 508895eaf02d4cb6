#include "common/program.hpp"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <new>

#include "common/module.hpp"
#include "common/printable.hpp"
#include "common/text.hpp"
#include "common/unknown_argument.hpp"
#include "resources/version.h"

namespace tallow::tools {
namespace {

std::string programName;

// Makes the streams carry the same bytes on every system: no added carriage returns, and UTF-8 on
// the console.
void prepareStreams() {
  for (std::FILE* stream : {stdin, stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
  SetConsoleOutputCP(CP_UTF8);
}

std::string oneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  std::replace(text.begin(), text.end(), '\r', ' ');
  return text;
}

std::string requestText(const client::RequestFailed& error) {
  return ansiToUtf8(error.what());
}

// With the dashes.
std::vector<std::string> optionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

}  // namespace

void writeToStandardError(const std::string& text) {
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_ERROR_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written,
            nullptr);
}

void printError(const std::string& text) {
  writeToStandardError(programName + ": " + printable(oneLine(text)) + "\n");
}

int runProgram(const std::string& name, int argc, wchar_t** argv,
               const std::function<ExitStatus(std::vector<std::string>)>& body) {
  programName = name;
  prepareStreams();
  ExitStatus status = ExitStatus::kFailed;
  try {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) arguments.push_back(toUtf8(argv[i]));
    status = body(std::move(arguments));
  } catch (const ToolError& error) {
    printError(error.what());
    status = error.status();
  } catch (const client::RequestFailed& error) {
    printError(requestText(error));
  } catch (const std::bad_alloc&) {
    printError("out of memory; use a smaller block size or close other programs");
  } catch (const std::exception& error) {
    printError(error.what());
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    printError("cannot write standard output; check where it goes");
    if (status == ExitStatus::kDone) status = ExitStatus::kFailed;
  }
  return static_cast<int>(status);
}

void prepare(CLI::App& app, const std::string& examples) {
  app.set_version_flag("--version", app.get_name() + " " TALLOW_VERSION,
                       "Print the version and exit");
  app.set_help_flag("-h,--help", "Print this help and exit");
  app.footer(examples);
  // "/tmp/orders" is a file, not an option.
  app.allow_windows_style_options(false);
  app.get_formatter()->column_width(34);
}

std::optional<ExitStatus> parse(CLI::App& app, std::vector<std::string> arguments) {
  const std::vector<std::string> given = arguments;
  std::reverse(arguments.begin(), arguments.end());  // CLI11 takes them from the back.
  try {
    app.parse(std::move(arguments));
    return std::nullopt;
  } catch (const CLI::CallForHelp&) {
    std::cout << app.help();
  } catch (const CLI::CallForVersion& version) {
    std::cout << version.what() << "\n";
  } catch (const CLI::ParseError& error) {
    // If an option is missing, it may be the one that was mistyped. So an unknown argument is
    // reported first.
    const std::vector<std::string> unknown = app.remaining();
    const std::string text = unknown.empty()
                                 ? oneLine(error.what())
                                 : unknownArgumentText(given, unknown.front(), optionNames(app));
    throw MisuseError(text + "; see " + app.get_name() + " --help");
  }
  std::cout.flush();
  return ExitStatus::kDone;
}

}  // namespace tallow::tools
