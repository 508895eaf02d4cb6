// Explains an initialisation string with the module's own parser, without loading the module.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "config/directory_state.hpp"
#include "config/options.hpp"

namespace tallow::tools {

// One option of the string.
struct ExplainedOption {
  std::string keyword;    // as written
  std::string value;      // as written, without quotes
  std::string canonical;  // the option's full name; empty if there is no such option
  bool taken = false;     // Init accepts it
  bool good = false;      // and it does what it is meant to do
  std::string text;  // what the option does, or what is wrong with it and what to write instead
};

struct InitStringReport {
  std::vector<ExplainedOption> options;
  config::Options effective;  // what the options result in; paths are as written
  std::string ending;         // what is wrong with the end of the string; empty if nothing is
  bool endsTheParse = false;  // the ending makes Init fail (a missing quote), not only lose text

  // Whether Init accepts the string.
  bool accepted() const noexcept;
  // The first complaint, in one line. Empty if there is none.
  std::string firstComplaint() const;
};

// The answer of the disk to the path of a directory, as written in the string.
using DirectoryLook = config::DirectoryState (*)(const std::string& path);

// Without `look`, every directory that the string names counts as usable.
InitStringReport explainInitString(std::string_view text, DirectoryLook look = nullptr);

// The option name that is nearest to a mistyped keyword. Empty if none is near.
std::string nearestOption(std::string_view keyword);

}  // namespace tallow::tools
