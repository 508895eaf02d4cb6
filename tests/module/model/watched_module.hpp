// The module that random jobs run against. Its pipe is a script, what each request reads from it is
// noted, and its calls can be made to fail. All of that is undone before the module is unloaded.
#pragma once

#include <windows.h>

#include <string>

#include "module/model/aftermath.hpp"
#include "module/model/failing_calls.hpp"
#include "module/model/log_model.hpp"
#include "support/host.hpp"
#include "support/scripted_pipe.hpp"

namespace tallow::test {

class WatchedModule {
 public:
  Host& host() { return host_; }
  FailingCalls& calls() { return calls_; }
  PipeScript& script() { return pipe_.script; }

  PipeTake take;     // of the latest request
  std::string sent;  // all that was taken from this pipe
  LogModel log;

 private:
  void note(const PipeScript::Outcome& got) {
    sent += got.data;
    take.data += got.data;
    take.asked = true;
    take.broken = got.error == ERROR_BROKEN_PIPE;
    take.ended = take.broken || (got.error == 0 && got.data.empty());
  }

  Module module_;
  Host host_{module_};
  FailingCalls calls_{module_.handle()};
  ScriptedPipe pipe_{module_.handle(), {}, [this](const PipeScript::Outcome& got) { note(got); }};
};

}  // namespace tallow::test
