// A load from beginning to end.
#pragma once

#include <string>

#include "common/tool_error.hpp"
#include "load/job/load_parts.hpp"

namespace tallow::load {

class Loader {
 public:
  // Throws MisuseError if the library that parses CSV is missing.
  Loader(const LoadOptions& options, DatabaseFactory makeConnection, LoadEvents events,
         WriterWatch& writer);

  // Runs the load. Throws ToolError, whose status says whether a restart can continue it.
  void run();

  // Valid even after run() has thrown.
  LoadReport report() const;
  // What run() throws if the load ends here for this reason.
  tools::ToolError ending(const std::string& text, tools::ExitStatus status) const;

 private:
  bool isBegun() const;
  bool canBeRestarted() const;

  LoadParts load_;
};

}  // namespace tallow::load
