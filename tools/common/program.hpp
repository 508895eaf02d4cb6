// What the main function of every tool does.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/tool_error.hpp"

namespace tallow::tools {

// Runs a tool's body with its arguments in UTF-8, without the program's name. An exception becomes
// one line on standard error, "name: text", and the exit status.
int runProgram(const std::string& name, int argc, wchar_t** argv,
               const std::function<ExitStatus(std::vector<std::string>)>& body);

// Gives an app what all tools share: --version, and the examples after the help.
void prepare(CLI::App& app, const std::string& examples);

// Parses the command line. Returns the exit status if the tool has nothing more to do (--help,
// --version). Throws MisuseError if the command line is wrong.
std::optional<ExitStatus> parse(CLI::App& app, std::vector<std::string> arguments);

// Writes in one piece. The run-time library would write to standard error letter by letter.
void writeToStandardError(const std::string& text);

// Writes one line, "name: text", to standard error, without anything that a terminal would obey.
void printError(const std::string& text);

}  // namespace tallow::tools
