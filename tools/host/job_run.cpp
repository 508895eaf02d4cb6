#include "host/job_run.hpp"

#include <cstdio>
#include <filesystem>
#include <new>

#include "common/output_file.hpp"
#include "common/program.hpp"
#include "common/text.hpp"
#include "host/interrupt.hpp"
#include "host/job.hpp"

namespace tallow::host {
namespace {

using tools::ExitStatus;

class JobRun {
 public:
  JobRun(const Settings& settings, const JobPlan& plan, Outcome& outcome)
      : settings_(settings), plan_(plan), outcome_(outcome) {
    if (plan.restart) outcome.counts.recordedPosition = plan.restart->position;
  }

  void run() {
    try {
      deliver();
    } catch (const RequestRefused& error) {
      outcome_.request = error.request();
      fail(error.what(), error.cure());
    } catch (const client::RequestFailed& error) {
      outcome_.request = error;
      fail(tools::ansiToUtf8(error.what()), Cure::kTime);
    } catch (const NothingToRestartFrom& error) {
      end(ExitStatus::kFailed, error.what());
    } catch (const tools::FileInUse& error) {
      fail(error.what(), Cure::kTime);
    } catch (const tools::ToolError& error) {
      fail(error.what(), error.status() == ExitStatus::kRestartable ? Cure::kTime : Cure::kMend);
    } catch (const std::bad_alloc&) {
      fail("out of memory; use a smaller Block_size or close other programs", Cure::kTime);
    } catch (const std::exception& error) {
      fail(error.what(), Cure::kMend);
    }
  }

 private:
  std::filesystem::path modulePath() const {
    if (settings_.module.empty()) return client::Module::besideProgram();
    return tools::toWide(settings_.module);
  }

  void deliver() {
    module_.emplace(modulePath());
    outcome_.module = module_->identify();
    interrupt_.emplace([this](EndReason reason, bool insideRequest) {
      return static_cast<unsigned>(lastWords(reason, insideRequest));
    });
    job_.emplace(plan_, *module_, *interrupt_);
    if (job_->run() == JobEnd::kDone) {
      outcome_.counts = job_->counts();
      outcome_.status = ExitStatus::kDone;
    } else {
      outcome_.isStoppedByUser = interrupt_->reason() == EndReason::kCtrlC;
      fail(endText(interrupt_->reason()), Cure::kTime);
    }
  }

  std::string endText(EndReason reason) const {
    return reason == EndReason::kWaitOver ? job_->waitText() : "stopped by Ctrl-C";
  }

  bool canBeRestarted() const {
    const std::optional<std::uint64_t> recorded =
        job_ ? job_->counts().recordedPosition : outcome_.counts.recordedPosition;
    return plan_.restartPossible && recorded && fallbackFileFault(plan_, *recorded).empty();
  }

  // The exit status of a job that ended before its data did.
  ExitStatus statusFor(Cure cure) const {
    if (canBeRestarted()) {
      return cure == Cure::kTime ? ExitStatus::kRestartable : ExitStatus::kMendFirst;
    }
    const bool started = job_ && job_->started();
    return started || cure == Cure::kTime ? ExitStatus::kFailed : ExitStatus::kMisused;
  }

  void fail(const std::string& text, Cure cure) {
    const ExitStatus status = statusFor(cure);
    end(status, text + afterwards(status));
  }

  void end(ExitStatus status, const std::string& text) {
    if (job_) outcome_.counts = job_->counts();
    outcome_.status = status;
    outcome_.error = text;
  }

  // What a job that did not reach its end has left, and how to continue it.
  std::string afterwards(ExitStatus status) const {
    std::string text;
    const std::string incomplete = job_ ? job_->incompleteFile() : std::string();
    if (!incomplete.empty()) text += "; " + incomplete + " holds only a part of the data";
    const std::string command = restartCommand(settings_);
    if (status == ExitStatus::kRestartable) return text + "; go on with: " + command;
    if (status == ExitStatus::kMendFirst) return text + "; mend that, then go on with: " + command;
    if (job_ && job_->started()) {
      text += "; no checkpoint to restart from is recorded, so the job has to start over";
    }
    return text;
  }

  // Outside a request, the job's own thread may be changing all of this. So only what never changes
  // may be printed then.
  ExitStatus lastWords(EndReason reason, bool insideRequest) {
    if (!insideRequest) {
      tools::printError("stopped by Ctrl-C" +
                        (plan_.keepsState() ? "; try to go on with: " + restartCommand(settings_)
                                            : std::string()));
      return plan_.restartPossible ? ExitStatus::kRestartable : ExitStatus::kFailed;
    }
    const std::string text = endText(reason);
    job_->leave();
    fail(text, Cure::kTime);
    printReport(settings_, plan_, outcome_);
    std::fflush(stdout);
    return outcome_.status;
  }

  const Settings& settings_;
  const JobPlan& plan_;
  Outcome& outcome_;
  std::optional<client::Module> module_;
  std::optional<Interrupt> interrupt_;
  std::optional<Job> job_;
};

}  // namespace

void runJob(const Settings& settings, const JobPlan& plan, Outcome& outcome) {
  JobRun(settings, plan, outcome).run();
}

}  // namespace tallow::host
