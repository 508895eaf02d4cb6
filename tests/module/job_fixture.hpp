// What most tests of the module begin with: a loaded module and a scratch folder with a log.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/log_reader.hpp"
#include "support/pipe_ends.hpp"
#include "support/surroundings.hpp"

namespace tallow::test {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The language library's texts with one text removed or changed.
class OtherTexts {
 public:
  explicit OtherTexts(HMODULE module, int id, std::string text)
      : hook_(module, "LoadStringA",
              [this, id, text](HINSTANCE library, UINT wanted, char* buffer, int size) {
                if (static_cast<int>(wanted) != id) {
                  return hook_.original(library, wanted, buffer, size);
                }
                const int kept = std::min(static_cast<int>(text.size()), size - 1);
                text.copy(buffer, static_cast<std::size_t>(kept));
                buffer[kept] = '\0';
                return kept;
              }) {}

 private:
  Hook<struct LoadStringTag, int(HINSTANCE, UINT, char*, int)> hook_;
};

// An environment that names no log directory and has the scratch folder as TEMP.
class ModuleTest : public testing::Test {
 protected:
  ScratchDirectory scratch;
  ScopedEnvironment noLogDirectory{"NPLOGDIR", std::nullopt};
  ScopedEnvironment temp{"TEMP", scratch.path()};
  std::optional<Module> loaded{std::in_place};
  Host host{*loaded};
  std::string pipeName = uniquePipeName();

  HMODULE module() const { return loaded->handle(); }
};

// The log is at level 6 in the scratch folder; its lines so far have been read.
class JobTest : public ModuleTest {
 protected:
  LogReader log{scratch.path()};

  std::string logOptions() const { return "Log_directory='" + scratch.path() + "' Log_level=6 "; }

  // Init without a fallback file, with `options` after those of the log; they must be valid.
  void initialise(std::string_view options = {}) {
    const Answer answer = host.init(logOptions() + "No_FallBack='' " + std::string(options));
    ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
    log.newLines();
  }

  // Init and Open.
  void openJob(std::string_view options = {}) {
    initialise(options);
    const Answer answer = host.open(pipeName);
    ASSERT_EQ(answer.code, pmrcSuccess) << answer.text.value_or("");
    log.newLines();
  }
};

}  // namespace tallow::test
