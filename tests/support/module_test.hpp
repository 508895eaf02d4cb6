// The fixture of the tests that load the module into their own process.
//
// ModuleTest has the loaded module, JobTest also its log, and FallbackTest (fallback_test.hpp) a
// fallback file and a scripted pipe. Each is torn down from the last to the first: what a derived
// fixture or a test puts into the module goes first, then the module, then its environment and at
// last the folder with all its files.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "support/host.hpp"
#include "support/log_reader.hpp"
#include "support/pipe_ends.hpp"
#include "support/scripted_pipe.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// An environment that names no log directory and has the scratch folder as TEMP.
class ModuleTest : public testing::Test {
 protected:
  ScratchDirectory scratch;
  ScopedEnvironment noLogDirectory{"NPLOGDIR", std::nullopt};
  ScopedEnvironment temp{"TEMP", scratch.path()};
  // Not an optional: GCC 14 warns that its content may be uninitialized.
  std::unique_ptr<Module> loaded = std::make_unique<Module>();
  Host host{*loaded};
  std::string pipeName = uniquePipeName();

  HMODULE module() const { return loaded->handle(); }

  // The process dies and another one begins: the module is unloaded without a Close and loaded
  // again, for a host that has sent no request yet.
  void reload();
};

// The log is at level 6 in the scratch folder; its lines so far have been read.
class JobTest : public ModuleTest {
 protected:
  LogReader log{scratch.path()};

  std::string logOptions() const { return "Log_directory='" + scratch.path() + "' Log_level=6 "; }

  // Init with `options` after those of the log. They must be valid.
  void initialiseWith(std::string_view options);

  // The same without a fallback file.
  void initialise(std::string_view options = {});

  // Init without a fallback file, and Open.
  void openJob(std::string_view options = {});
};

}  // namespace tallow::test
