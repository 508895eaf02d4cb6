#include "load/job/loader.hpp"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <thread>
#include <utility>

#include "common/fallback_look.hpp"
#include "common/formatting.hpp"
#include "common/output_file.hpp"
#include "common/printable.hpp"
#include "common/program.hpp"
#include "common/text.hpp"
#include "load/rows/data_format.hpp"
#include "load/target/way.hpp"

namespace tallow::load {
namespace {

using client::RequestFailed;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tools::ExitStatus;
using tools::MisuseError;
using tools::ToolError;

constexpr std::size_t kShownOfRow = 200;  // bytes

// Bytes of the server's largest statement that are kept for all but the row.
constexpr std::uint64_t kStatementOverhead = 64ULL * 1024;

// How long one statement may wait for a lock: half of the time in which the load tries again.
milliseconds longestWait(const LoadOptions& options) {
  return std::clamp(milliseconds(options.retrySeconds * 500ULL), milliseconds(1000),
                    milliseconds(30000));
}

Destination destinationOf(const LoadOptions& options) {
  return {options.connection, longestWait(options),
          "tallow-load " + options.job + " " + options.settings.pipe, options.libpqFile,
          [](const std::string& text) { tools::printError("the database notes: " + text); }};
}

// A failure with its final text and status.
class Ended : public ToolError {
 public:
  explicit Ended(const ToolError& error) : ToolError(error) {}
};

std::string fallbackPathOf(const std::string& initString) {
  return tools::fallbackPath(tools::explainInitString(initString).effective);
}

bool fileIsThere(const std::string& path) {
  return GetFileAttributesW(tools::toWide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string textOf(const RequestFailed& error) {
  return tools::ansiToUtf8(error.what());
}

// The beginning of a row, short enough for one line.
std::string excerpt(std::string_view raw) {
  while (!raw.empty() && (raw.back() == '\n' || raw.back() == '\r')) raw.remove_suffix(1);
  const std::string text = tools::printable(raw.substr(0, kShownOfRow));
  return raw.size() > kShownOfRow ? text + "..." : text;
}

}  // namespace

Loader::Loader(const LoadOptions& options, LoadEvents events, WriterWatch& writer)
    : options_(options),
      events_(std::move(events)),
      writer_(writer),
      initString_(withFallbackFile(options.settings.init, options.job, options.settings.pipe)),
      fallbackPath_(fallbackPathOf(initString_)),
      store_(wayTo(destinationOf(options)), options.job),
      session_(store_, options.job, options.settings),
      parser_(options.settings.delimiter),
      pacer_(options.checkpointEvery),
      budget_(std::chrono::seconds(options.retrySeconds)) {}

Loader::~Loader() = default;

LoadReport Loader::report() const {
  LoadReport report = report_;
  report.nothingBegun = !isBegun();
  report.progress = session_.committed();
  return report;
}

void Loader::run() {
  try {
    begin();
    if (!done_) loadBlocks();
  } catch (const JobTaken&) {
    throw;
  } catch (const Ended&) {
    throw;
  } catch (const ToolError& error) {
    const bool isOurs =
        error.status() == ExitStatus::kFailed || error.status() == ExitStatus::kRestartable;
    if (!isOurs) throw;
    fail(error.what(), error.status());
  } catch (const DatabaseError& error) {
    const bool unconnected = error.step() == Step::kConnect;
    const std::string text =
        (unconnected ? "cannot connect to the database: " : "the database says: ") +
        std::string(error.what()) + (unconnected ? "; check --to" : "");
    fail(text, isLost(error) ? ExitStatus::kRestartable : ExitStatus::kMendFirst);
  } catch (const UnreadableData& error) {
    fail(std::string(error.what()) + "; repair the data there and send it again",
         ExitStatus::kMendFirst);
  } catch (const RequestFailed& error) {
    fail(textOf(error), ExitStatus::kRestartable);
  } catch (const std::bad_alloc&) {
    fail("out of memory; use a smaller block size or batch, or close other programs",
         ExitStatus::kMendFirst);
  } catch (const std::exception& error) {
    fail(error.what(), ExitStatus::kMendFirst);
  }
}

// Ends the load. If the failure has no status of its own, something must be mended first, or, if
// there is nothing to restart from, the load has failed. But a fault that passes may be gone when
// the same command is run again.
void Loader::fail(const std::string& text, ExitStatus status) const {
  throw Ended(ending(text, status));
}

ToolError Loader::ending(const std::string& text, ExitStatus status) const {
  const bool passes = status == ExitStatus::kRestartable;
  if (!isBegun()) return ToolError(text, passes ? status : ExitStatus::kFailed);
  if (canBeRestarted()) return ToolError(text, passes ? status : ExitStatus::kMendFirst);
  return ToolError(
      text + "; the fallback file " + fallbackPath_ + " is gone, so only --start-over is left",
      ExitStatus::kFailed);
}

// Whether a restart would find the job, as far as this run can know.
bool Loader::isBegun() const {
  return taken_ || goesOn_ || session_.takeIsInDoubt();
}

// From position 0 the job reads its data from the first block on, like a new one. Any other
// position needs the fallback file.
bool Loader::canBeRestarted() const {
  const std::uint64_t position = taken_ ? session_.committed().position : start_.position;
  return position == 0 || fileIsThere(fallbackPath_);
}

void Loader::begin() {
  // Until the job's row has been read, a restart assumes that the job exists.
  goesOn_ = options_.mode == RunMode::kRestart;
  const Beginning beginning = connectAndLook();
  goesOn_ = beginning.kind == Beginning::Kind::kGoOn;
  if (beginning.kind == Beginning::Kind::kRefused) throw ToolError(beginning.reason);
  limitRows();
  done_ = report_.wasDone = beginning.kind == Beginning::Kind::kAlreadyDone;
  if (done_) {
    removeLeftFallbackFile();
    return;
  }
  prepareTable();
  checkRejects();
  if (options_.mode == RunMode::kStartOver) {
    takeJob();
    removeLeftovers();
  }
  openRejects();
  openStream();
  if (!taken_) takeJob();
  if (session_.committed().done) {
    done_ = true;
    return;
  }
  position();
}

// The rest of a row is stored in the job's row, where each byte takes two.
void Loader::limitRows() {
  const std::optional<std::uint64_t> statement = store_.database().traits().largestStatement;
  if (!statement) return;
  const std::uint64_t most = (*statement - std::min(*statement, kStatementOverhead)) / 2;
  if (most >= kLongestRow) return;
  parser_.setLongestRow(most, ", which is what the server's max_allowed_packet of " +
                                  std::to_string(*statement) +
                                  " bytes leaves room for; raise that");
}

Beginning Loader::connectAndLook() {
  Beginning beginning;
  insist(
      [&] {
        store_.connect();
        store_.provideTable();
        beginning = look();
      },
      [&](const DatabaseError& error) { return isLost(error); });
  return beginning;
}

// Decides what to do about the job's row. Changes nothing.
Beginning Loader::look() {
  const std::optional<JobRecord> recorded = session_.look();
  if (recorded && options_.mode == RunMode::kRestart) start_ = recorded->progress;
  table_ = findTable(store_.database(), options_.settings.table);
  if (recorded && options_.mode == RunMode::kStartOver) givenUp_ = recorded;
  const bool counts = givenUp_ && table_ && !options_.rowsRemoved;
  const std::uint64_t tableRows = counts ? countRows(store_.database(), *table_) : 0;
  store_.rollback();
  Beginning beginning =
      decideBeginning(options_.mode, options_.job, recorded, options_.settings, tableRows);
  if (beginning.kind == Beginning::Kind::kAlreadyDone) session_.adopt(*recorded);
  return beginning;
}

// Finds the table, or makes it, and determines the columns as far as they are known before the
// data.
void Loader::prepareTable() {
  if (!table_ && !options_.create) {
    throw ToolError("the table " + options_.settings.table +
                    " is not there; make it, or let --create make it");
  }
  const bool restarts = options_.mode == RunMode::kRestart;
  if (!restarts) start_.header = options_.header ? Header::kDue : Header::kNone;
  const std::vector<std::string>& wanted =
      restarts && !start_.columns.empty() ? start_.columns : options_.columns;
  if (!table_ && !wanted.empty()) {
    table_ = createTable(store_.database(), options_.settings.table, wanted);
  }
  if (!wanted.empty()) {
    start_.columns = matchColumns(wanted, *table_);
  } else if (start_.header == Header::kNone) {
    start_.columns = table_->columns;
  }
  if (restarts && !options_.columns.empty() &&
      matchColumns(options_.columns, *table_) != start_.columns) {
    throw ToolError("the job was begun with other columns; give the same --columns, or none");
  }
  if (table_) store_.database().requireLoadable(*table_, start_.columns);
  if (!start_.columns.empty()) openRows(start_.columns);  // Throws if there are too many.
}

// A job that begins refuses a rejects file that is not empty, unless it is its own from an earlier
// attempt.
void Loader::checkRejects() const {
  const std::string& file = options_.settings.rejectsFile;
  const bool isOurs = givenUp_ && givenUp_->settings.rejectsFile == file;
  if (file.empty() || isOurs || options_.mode == RunMode::kRestart) return;
  for (const std::string& path : {file, Rejects::reasonsPath(file)}) {
    if (fileIsThere(path) && tools::OutputFile::openExisting(path).size() > 0) {
      throw ToolError(path +
                      " holds something, and nothing says that it is this job's; move it "
                      "away or name another file");
    }
  }
}

void Loader::openRejects() {
  rejects_ =
      std::make_unique<Rejects>(options_.rejects, start_.rejectsLength, start_.reasonsLength);
}

void Loader::openStream() {
  const bool ahead = !store_.database().traits().wantsOneThread;
  stream_ =
      std::make_unique<BlockReader>(options_.module, initString_, options_.settings.pipe, ahead);
}

void Loader::takeJob() {
  bool again = false;
  insist(
      [&] {
        if (again) store_.connect();
        again = true;
        session_.take(options_.mode, start_);
      },
      [&](const DatabaseError& error) { return !session_.takeIsInDoubt() && isLost(error); });
  taken_ = true;
  report_.rowsBefore = session_.committed().rows;
  report_.bytesBefore = session_.committed().bytes;
}

// Deletes what the attempt that is given up has left on the disk, as far as the job's row names it
// and this run uses the name.
void Loader::removeLeftovers() const {
  if (!givenUp_) return;
  const JobSettings& settings = givenUp_->settings;
  std::vector<std::string> leftovers;
  if (!givenUp_->progress.done || !namesFallbackFile(settings.init)) {
    leftovers.push_back(
        fallbackPathOf(withFallbackFile(settings.init, options_.job, settings.pipe)));
  }
  if (!options_.rejects.empty() && settings.rejectsFile == options_.settings.rejectsFile) {
    leftovers.push_back(settings.rejectsFile);
    leftovers.push_back(Rejects::reasonsPath(settings.rejectsFile));
  }
  for (const std::string& path : leftovers) {
    if (!fileIsThere(path) || DeleteFileW(tools::toWide(path).c_str())) continue;
    throw ToolError("cannot remove " + path + ": " + tools::systemErrorText(GetLastError()) +
                    "; end the process that has it open, then start over again");
  }
}

// A load that died between its last commit and Close leaves its fallback file. We delete it only if
// we chose its name.
void Loader::removeLeftFallbackFile() const {
  if (!namesFallbackFile(options_.settings.init)) DeleteFileW(tools::toWide(fallbackPath_).c_str());
}

// Brings the stream, and then everything in memory and in files, to the committed position.
void Loader::position() {
  const std::uint64_t committed = session_.committed().position;
  pacer_.startAt(committed, steady_clock::now());
  if (committed == 0) {
    stream_->getPos();  // Creates the fallback file, so that block 1 can be delivered again.
    if (!fileIsThere(fallbackPath_)) {
      throw ToolError("the fallback file " + fallbackPath_ +
                      " cannot be written, and without it a load that dies could not go on; name "
                      "another folder with --init \"Fallback_Directory=...\"");
    }
  } else {
    events_.wait("waiting for a writer at " + options_.settings.pipe +
                 " to send again the data up to block " + std::to_string(committed));
    try {
      const WriterWatch::Wait wait(writer_, committed);
      stream_->setPos(committed);
    } catch (const RequestFailed& error) {
      explainRefusal(error);
    }
    block_ = committed - 1;
    dropNext_ = true;
  }
  restoreCommitted();
  tell();
  events_.wait("waiting for data from a writer at " + options_.settings.pipe);
}

void Loader::explainRefusal(const RequestFailed& error) const {
  const std::string unchanged = "nothing was changed; ";
  const std::string position = std::to_string(session_.committed().position);
  if (error.code() == pmrcDelivery) {
    fail("the writer sends other data than before (" + textOf(error) + "); " + unchanged +
             "have it send the same data and run this again, or begin anew with --start-over",
         ExitStatus::kMendFirst);
  }
  if (error.code() == pmrcBadPosition) {
    fail("the data cannot be brought to block " + position + " (" + textOf(error) + "); " +
             unchanged +
             "either the writer sent less than before: have it send all and run this "
             "again; or the fallback file is of another run: begin anew with --start-over",
         ExitStatus::kMendFirst);
  }
  if (fileIsThere(fallbackPath_)) {
    fail("the fallback file " + fallbackPath_ + " cannot be used (" + textOf(error) + "); " +
             unchanged + "end the process that has it open, if there is one, and run this again",
         ExitStatus::kMendFirst);
  }
  fail("there is no way back to block " + position + ", and nothing was changed",
       ExitStatus::kFailed);
}

void Loader::loadBlocks() {
  while (!done_) {
    try {
      step();
    } catch (const RowsRefused& error) {
      search_.refused(error.rows(), error.diagnostic());
      goBack();
    } catch (const DatabaseError& error) {
      if (!isLost(error)) throw;
      reconnect(error);
    }
    tell();
  }
  stream_->finish();
}

void Loader::step() {
  const std::optional<std::string_view> data = nextBlock();
  if (!data) {
    finishData();
    return;
  }
  ++block_;
  if (dropNext_) {
    dropNext_ = false;
    // Makes this position the newest sync point. The next one then leaves it restartable.
    stream_->getPos();
    return;
  }
  if (block_ == 1) checkFormat(*data);
  pacer_.delivered(block_, steady_clock::now());
  const bool due = pacer_.due();
  // A wrong header ends the job, whatever follows it.
  if (!due && progress_.header != Header::kDue) stream_->readAhead();
  parser_.setInput(*data);
  Row row;
  while (parser_.next(row)) handle(row);
  // The rest of a row is stored in the job's row. A rest that is longer than a block would be
  // stored again and again, longer each time, so the checkpoint waits for the end of the row.
  if (due && parser_.unfinished().size() <= data->size()) checkpoint(false);
}

std::optional<std::string_view> Loader::nextBlock() {
  const WriterWatch::Wait wait(writer_, 1);
  return stream_->read();
}

void Loader::checkFormat(std::string_view beginning) {
  const std::string format(foreignFormat(beginning));
  if (format.empty()) return;
  throw UnreadableData("the data looks like " + format +
                       ", and what can be loaded is CSV in UTF-8");
}

void Loader::finishData() {
  const std::string& rest = parser_.unfinished();
  if (parser_.bytes() > 0) {
    report_.endsWithLineBreak = rest.empty() || rest.back() == '\r';
  }
  Row row;
  while (parser_.finish(row)) handle(row);
  if (progress_.header == Header::kDue) {
    abandon("the data is empty, without even the header; see why the writer sent nothing");
  }
  checkpoint(true);
  done_ = true;
}

void Loader::checkpoint(bool done) {
  progress_.position = stream_->getPos();
  if (progress_.position != block_) {
    throw ToolError("the module answers position " + std::to_string(progress_.position) +
                    " after block " + std::to_string(block_) + "; use the module of this release");
  }
  if (sink_) sink_->flush();
  rejects_->flushToDisk();
  progress_.unfinishedRow = parser_.unfinished();
  progress_.lines = parser_.lines();
  progress_.bytes = parser_.bytes();
  progress_.rejectsLength = rejects_->length();
  progress_.reasonsLength = rejects_->reasonsLength();
  progress_.done = done;
  session_.commit(progress_);
  pacer_.committed(block_, steady_clock::now());
  budget_.renew();
  search_.clear();
  if (!done && !warned_ && !fileIsThere(fallbackPath_)) {
    warned_ = true;
    tools::printError("warning: the fallback file " + fallbackPath_ +
                      " is gone; the load goes on, but it could not be restarted");
  }
}

void Loader::handle(const Row& row) {
  if (progress_.header == Header::kDue) {
    takeHeader(row);
    return;
  }
  const std::uint64_t number = progress_.rows + progress_.rejects + 1;
  if (search_.beginsStatement(number)) sink_->flush();
  std::optional<Diagnostic> reason = faultOf(row, progress_.columns.size());
  if (const Diagnostic* known = search_.reasonAgainst(number); known && !reason) reason = *known;
  if (reason) {
    rejectNext(row, *reason);
    return;
  }
  reason = sink_->add(number, row);
  if (reason) {
    rejectNext(row, *reason);
    return;
  }
  ++progress_.rows;
}

void Loader::takeHeader(const Row& row) {
  try {
    const std::vector<std::string> columns = columnsOfHeader(row);
    store_.database().requireLoadable(*table_, columns);
    useColumns(columns);
  } catch (const ToolError& error) {
    abandon(error.what());
  }
  progress_.header = Header::kRead;
}

std::vector<std::string> Loader::columnsOfHeader(const Row& row) {
  if (row.defect != RowDefect::kNone) {
    throw ToolError("the header, line " + std::to_string(row.line) +
                    ", cannot be read: " + faultOf(row, row.fields.size())->text);
  }
  if (!progress_.columns.empty()) {
    if (row.fields.size() == progress_.columns.size()) return progress_.columns;
    throw ToolError("the header has " + std::to_string(row.fields.size()) + " fields and " +
                    std::to_string(progress_.columns.size()) +
                    " columns are named; make --columns fit the data");
  }
  std::vector<std::string> names;
  for (const Field& field : row.fields) names.emplace_back(field.text);
  if (std::ranges::find(names, "") != names.end()) {
    throw ToolError("the header, line " + std::to_string(row.line) +
                    ", has an empty name; name the columns with --columns");
  }
  if (!table_) {
    table_ = createTable(store_.database(), options_.settings.table, names);
  }
  return matchColumns(names, *table_);
}

void Loader::useColumns(const std::vector<std::string>& columns) {
  progress_.columns = columns;
  parser_.setSingleColumn(columns.size() == 1);
  sink_ = openRows(columns);
}

std::unique_ptr<RowSink> Loader::openRows(const std::vector<std::string>& columns) {
  SetAside setAside;
  if (options_.maxRejects > 0) {
    setAside = [this](const Row& row, const Diagnostic& reason) {
      --progress_.rows;
      reject(row, reason);
    };
  }
  return store_.database().openRows(*table_, columns, options_.settings.nullText, options_.batch,
                                    setAside);
}

// Rejects the row that has been read last. One that comes before it may be found bad first.
void Loader::rejectNext(const Row& row, const Diagnostic& reason) {
  if (progress_.rejects >= options_.maxRejects) {
    sink_->flush();
  } else {
    sink_->settle();
  }
  reject(row, reason);
}

void Loader::reject(const Row& row, const Diagnostic& reason) {
  if (progress_.rejects >= options_.maxRejects) {
    throw ToolError("line " + std::to_string(row.line) + " (byte " + std::to_string(row.offset) +
                    ") cannot be loaded: " + describe(reason) + ": \"" + excerpt(row.raw) +
                    "\"; repair it, or set bad rows aside with --rejects FILE --max-rejects N");
  }
  rejects_->write(row, reason);
  ++progress_.rejects;
}

void Loader::tell() const {
  events_.pulse(
      {parser_.bytes(), block_, progress_.rows, progress_.rejects, session_.committed().position});
}

bool Loader::isLost(const DatabaseError& error) const {
  return error.fault() == Fault::kLost || store_.isDead();
}

// Undoes what the database has not committed and starts again after the last checkpoint.
void Loader::goBack() {
  ++report_.rewinds;
  try {
    store_.rollback();
  } catch (const DatabaseError& error) {
    reconnect(error);
    return;
  }
  restoreCommitted();
  sendBack();
}

void Loader::reconnect(const DatabaseError& error) {
  ++report_.reconnections;
  sink_.reset();  // Its statements belong to the old connection.
  pauseAfter(error);
  AfterReconnection outcome{};
  insist([&] { outcome = session_.reconnect(); },
         [&](const DatabaseError& failure) {
           return failure.step() != Step::kConnect || isLost(failure);
         });
  restoreCommitted();
  switch (outcome) {
    case AfterReconnection::kFinished:
      done_ = true;
      break;
    case AfterReconnection::kStayHere:
      pacer_.committed(block_, steady_clock::now());
      search_.clear();
      budget_.renew();
      break;
    default:
      sendBack();
  }
}

// Repeats the attempt while it fails with a fault that passes, for --retry seconds.
void Loader::insist(const std::function<void()>& attempt,
                    const std::function<bool(const DatabaseError&)>& passes) {
  for (;;) {
    const steady_clock::time_point start = steady_clock::now();
    try {
      attempt();
      return;
    } catch (const DatabaseError& error) {
      if (!passes(error)) throw;
      budget_.spend(std::chrono::duration_cast<milliseconds>(steady_clock::now() - start));
      pauseAfter(error);
    }
  }
}

void Loader::pauseAfter(const DatabaseError& error) {
  const std::optional<milliseconds> pause = budget_.nextPause();
  if (pause) {
    std::this_thread::sleep_for(*pause);
    return;
  }
  const std::string time =
      tools::formatCount(options_.retrySeconds, "second") + ": " + error.what();
  const std::string text = error.isLockedByAnother()
                               ? "the database has been locked by another program for " + time +
                                     "; wait for that program, or end it"
                               : "the database has been out of reach for " + time;
  throw ToolError(text, ExitStatus::kRestartable);
}

// Sets everything in memory and in the rejects files to what the database says.
void Loader::restoreCommitted() {
  progress_ = session_.committed();
  parser_.restore(progress_.unfinishedRow, progress_.lines, progress_.bytes);
  sink_.reset();
  if (!progress_.columns.empty()) useColumns(progress_.columns);
  rejects_->cutTo(progress_.rejectsLength, progress_.reasonsLength);
}

// Makes the stream deliver again what came after the committed position.
void Loader::sendBack() {
  const std::uint64_t committed = session_.committed().position;
  if (dropReadAhead()) pacer_.delivered(block_ + 1, steady_clock::now());
  stream_->setPos(committed);
  pacer_.wentBack(committed);
  dropNext_ = committed > 0;
  block_ = committed > 0 ? committed - 1 : 0;
}

bool Loader::dropReadAhead() {
  const WriterWatch::Wait wait(writer_, 1);
  return stream_->dropReadAhead();
}

// Gives up a job whose header is wrong, and leaves nothing of it.
void Loader::abandon(const std::string& reason) {
  session_.withdraw();
  taken_ = goesOn_ = false;
  stream_.reset();
  DeleteFileW(tools::toWide(fallbackPath_).c_str());
  throw ToolError(reason);
}

}  // namespace tallow::load
