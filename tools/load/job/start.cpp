#include "load/job/start.hpp"

#include <windows.h>

#include <utility>
#include <vector>

#include "common/output_file.hpp"
#include "common/text.hpp"
#include "load/target/target_table.hpp"

namespace tallow::load {
namespace {

using client::RequestFailed;
using tools::ToolError;

class LoadStart {
 public:
  explicit LoadStart(LoadParts& load) : load_(load) {}

  std::optional<StartedLoad> start();

 private:
  bool restarts() const { return load_.options.mode == RunMode::kRestart; }
  bool startsOver() const { return load_.options.mode == RunMode::kStartOver; }

  void connectAndLook();
  void look();
  void prepareTable();
  void checkRejects() const;
  void takeJob();
  void removeLeftovers() const;
  std::unique_ptr<BlockReader> openStream();
  void position(BlockReader& stream);
  [[noreturn]] void explainRefusal(const RequestFailed& error) const;

  LoadParts& load_;
  JobProgress start_;  // of a job that begins
  std::optional<TargetTable> table_;
};

std::optional<StartedLoad> LoadStart::start() {
  connectAndLook();
  if (load_.beginning->kind == Beginning::Kind::kRefused) {
    throw ToolError(load_.beginning->reason);
  }
  if (load_.beginning->kind == Beginning::Kind::kAlreadyDone) {
    load_.report.wasDone = true;
    // A load that died between its last commit and Close leaves its fallback file. We delete it
    // only if we chose its name.
    if (!namesFallbackFile(load_.options.settings.init)) load_.dropFallbackFile();
    return std::nullopt;
  }
  prepareTable();
  checkRejects();
  if (startsOver()) {
    takeJob();
    removeLeftovers();
  }
  Rejects rejects(load_.options.rejects, start_.rejectsLength, start_.reasonsLength);
  std::unique_ptr<BlockReader> stream = openStream();
  if (!startsOver()) takeJob();
  if (load_.session.committed().done) return std::nullopt;
  position(*stream);
  return StartedLoad{std::move(table_), std::move(rejects), std::move(stream)};
}

void LoadStart::connectAndLook() {
  load_.patience.insist(
      [&] {
        load_.store.connect();
        load_.store.provideTable();
        look();
      },
      [&](const DatabaseError& error) { return load_.isLost(error); });
}

// Decides what to do about the job's row. Changes nothing.
void LoadStart::look() {
  const LoadOptions& options = load_.options;
  load_.recorded = load_.session.look();
  if (load_.recorded && restarts()) start_ = load_.recorded->progress;
  table_ = findTable(load_.store.database(), options.settings.table);
  const bool counts = startsOver() && load_.recorded && table_ && !options.rowsRemoved;
  const std::uint64_t tableRows = counts ? countRows(load_.store.database(), *table_) : 0;
  load_.store.rollback();
  load_.beginning =
      decideBeginning(options.mode, options.job, load_.recorded, options.settings, tableRows);
  if (load_.beginning->kind == Beginning::Kind::kAlreadyDone) load_.session.adopt(*load_.recorded);
}

// Finds the table, or makes it, and determines the columns as far as they are known before the
// data.
void LoadStart::prepareTable() {
  const LoadOptions& options = load_.options;
  Database& database = load_.store.database();
  if (!table_ && !options.create) {
    throw ToolError("the table " + options.settings.table +
                    " is not there; make it, or let --create make it");
  }
  if (!restarts()) start_.header = options.header ? Header::kDue : Header::kNone;
  const std::vector<std::string>& wanted =
      restarts() && !start_.columns.empty() ? start_.columns : options.columns;
  if (!table_ && !wanted.empty()) table_ = createTable(database, options.settings.table, wanted);
  if (!wanted.empty()) {
    start_.columns = matchColumns(wanted, *table_);
  } else if (start_.header == Header::kNone) {
    start_.columns = table_->columns;
  }
  if (restarts() && !options.columns.empty() &&
      matchColumns(options.columns, *table_) != start_.columns) {
    throw ToolError("the job was begun with other columns; give the same --columns, or none");
  }
  if (table_) database.requireLoadable(*table_, start_.columns);
  if (!start_.columns.empty()) {  // Throws if there are too many.
    database.openRows(*table_, start_.columns, options.settings.nullText, options.batch, {});
  }
}

// A job that begins refuses a rejects file that is not empty, unless it is its own from an earlier
// attempt.
void LoadStart::checkRejects() const {
  const std::string& file = load_.options.settings.rejectsFile;
  const bool isOurs =
      startsOver() && load_.recorded && load_.recorded->settings.rejectsFile == file;
  if (file.empty() || isOurs || restarts()) return;
  for (const std::string& path : {file, Rejects::reasonsPath(file)}) {
    const std::optional<tools::OutputFile> found = tools::OutputFile::tryOpenExisting(path);
    if (found && found->size() > 0) {
      throw ToolError(path +
                      " holds something, and nothing says that it is this job's; move it "
                      "away or name another file");
    }
  }
}

std::unique_ptr<BlockReader> LoadStart::openStream() {
  const bool ahead = !load_.store.database().traits().wantsOneThread;
  return std::make_unique<BlockReader>(load_.options.module, load_.initString,
                                       load_.options.settings.pipe, ahead);
}

void LoadStart::takeJob() {
  bool again = false;
  load_.patience.insist(
      [&] {
        if (again) load_.store.connect();
        again = true;
        load_.session.take(load_.options.mode, start_);
      },
      [&](const DatabaseError& error) {
        return load_.session.claim() != Claim::kInDoubt && load_.isLost(error);
      });
  load_.report.rowsBefore = load_.session.committed().rows;
}

// Deletes what the attempt that is given up has left on the disk, as far as the job's row names it
// and this run uses the name.
void LoadStart::removeLeftovers() const {
  if (!load_.recorded) return;
  const LoadOptions& options = load_.options;
  const JobSettings& settings = load_.recorded->settings;
  std::vector<std::string> leftovers;
  if (!load_.recorded->progress.done || !namesFallbackFile(settings.init)) {
    leftovers.push_back(
        fallbackPathOf(withFallbackFile(settings.init, options.job, settings.pipe)));
  }
  if (!options.rejects.empty() && settings.rejectsFile == options.settings.rejectsFile) {
    leftovers.push_back(settings.rejectsFile);
    leftovers.push_back(Rejects::reasonsPath(settings.rejectsFile));
  }
  for (const std::string& path : leftovers) {
    if (DeleteFileW(tools::toWide(path).c_str())) continue;
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) continue;
    throw ToolError("cannot remove " + path + ": " + tools::systemErrorText(error) +
                    "; end the process that has it open, then start over again");
  }
}

// Brings the stream to the committed position.
void LoadStart::position(BlockReader& stream) {
  const std::uint64_t committed = load_.session.committed().position;
  const std::string& pipe = load_.options.settings.pipe;
  if (committed == 0) {
    stream.getPos();  // Creates the fallback file, so that block 1 can be delivered again.
    if (!load_.fallbackFault(0).empty()) {
      throw ToolError("the fallback file " + load_.fallbackPath +
                      " cannot be written, and without it a load that dies could not go on; name "
                      "another folder with --init \"Fallback_Directory=...\"");
    }
    return;
  }
  load_.events.wait("waiting for a writer at " + pipe + " to send again the data up to block " +
                    std::to_string(committed));
  try {
    const WriterWatch::Wait wait(load_.writer, committed);
    stream.setPos(committed);
  } catch (const RequestFailed& error) {
    explainRefusal(error);
  }
}

void LoadStart::explainRefusal(const RequestFailed& error) const {
  const std::string said = tools::ansiToUtf8(error.what());
  const std::string unchanged = "nothing was changed; ";
  const std::uint64_t position = load_.session.committed().position;
  const std::string block = std::to_string(position);
  if (error.code() == pmrcDelivery) {
    throw ToolError("the writer sends other data than before (" + said + "); " + unchanged +
                    "have it send the same data and run this again, or begin anew with "
                    "--start-over");
  }
  if (error.code() == pmrcBadPosition) {
    throw ToolError("the data cannot be brought to block " + block + " (" + said + "); " +
                    unchanged +
                    "either the writer sent less than before: have it send all and run this "
                    "again; or the fallback file is of another run: begin anew with "
                    "--start-over");
  }
  if (!load_.isFallbackFileGone()) {
    throw ToolError("the fallback file " + load_.fallbackPath + " cannot be used (" + said + "); " +
                    unchanged +
                    "end the process that has it open, if there is one, and run this again");
  }
  throw ToolError("there is no way back to block " + block + ", and nothing was changed");
}

}  // namespace

std::optional<StartedLoad> startLoad(LoadParts& load) {
  return LoadStart(load).start();
}

}  // namespace tallow::load
