#include "load/job/loader.hpp"

#include <new>
#include <optional>
#include <utility>

#include "common/module.hpp"
#include "common/text.hpp"
#include "load/job/running.hpp"
#include "load/job/start.hpp"
#include "load/rows/csv_library.hpp"
#include "load/rows/row_parser.hpp"

namespace tallow::load {

using client::RequestFailed;
using tools::ExitStatus;
using tools::ToolError;

Loader::Loader(const LoadOptions& options, DatabaseFactory makeConnection, LoadEvents events,
               WriterWatch& writer)
    : load_(options, std::move(makeConnection), std::move(events), writer) {
  csvLibrary();  // Before anything is begun.
}

LoadReport Loader::report() const {
  LoadReport report = load_.report;
  report.nothingBegun = !isBegun();
  report.progress = load_.session.committed();
  return report;
}

void Loader::run() {
  try {
    if (std::optional<StartedLoad> started = startLoad(load_)) {
      runLoad(load_, std::move(*started));
    }
  } catch (const JobTaken&) {
    throw;
  } catch (const ToolError& error) {
    const bool isOurs =
        error.status() == ExitStatus::kFailed || error.status() == ExitStatus::kRestartable;
    if (!isOurs) throw;
    throw ending(error.what(), error.status());
  } catch (const DatabaseError& error) {
    const bool unconnected = error.step() == Step::kConnect;
    const std::string text =
        (unconnected ? "cannot connect to the database: " : "the database says: ") +
        std::string(error.what()) + (unconnected ? "; check --to" : "");
    throw ending(text, load_.isLost(error) ? ExitStatus::kRestartable : ExitStatus::kMendFirst);
  } catch (const UnreadableData& error) {
    throw ending(std::string(error.what()) + "; repair the data there and send it again",
                 ExitStatus::kMendFirst);
  } catch (const RequestFailed& error) {
    throw ending(tools::ansiToUtf8(error.what()), ExitStatus::kRestartable);
  } catch (const std::bad_alloc&) {
    throw ending("out of memory; use a smaller block size or batch, or close other programs",
                 ExitStatus::kMendFirst);
  } catch (const std::exception& error) {
    throw ending(error.what(), ExitStatus::kMendFirst);
  }
}

// If the failure has no status of its own, something must be mended first, or, if there is nothing
// to restart from, the load has failed. But a fault that passes may be gone when the same command
// is run again.
ToolError Loader::ending(const std::string& text, ExitStatus status) const {
  const bool passes = status == ExitStatus::kRestartable;
  if (!isBegun()) return ToolError(text, passes ? status : ExitStatus::kFailed);
  if (canBeRestarted()) return ToolError(text, passes ? status : ExitStatus::kMendFirst);
  return ToolError(
      text + "; the fallback file " + load_.fallbackPath + " is gone, so only --start-over is left",
      ExitStatus::kFailed);
}

// Whether a restart would find the job, as far as this run can know. Until the job's row has been
// read, a restart assumes that the job exists.
bool Loader::isBegun() const {
  switch (load_.session.claim()) {
    case Claim::kHeld:
    case Claim::kInDoubt:
      return true;
    case Claim::kWithdrawn:
      return false;
    case Claim::kNone:
      break;
  }
  if (!load_.beginning) return load_.options.mode == RunMode::kRestart;
  return load_.beginning->kind == Beginning::Kind::kGoOn;
}

// From position 0 the job reads its data from the first block on, like a new one. Any other
// position needs the fallback file.
bool Loader::canBeRestarted() const {
  const bool goesOn = load_.options.mode == RunMode::kRestart && load_.recorded.has_value();
  const std::uint64_t recorded = goesOn ? load_.recorded->progress.position : 0;
  const bool isHeld = load_.session.claim() == Claim::kHeld;
  const std::uint64_t position = isHeld ? load_.session.committed().position : recorded;
  return position == 0 || !load_.isFallbackFileGone();
}

}  // namespace tallow::load
