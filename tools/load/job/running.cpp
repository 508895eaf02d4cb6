#include "load/job/running.hpp"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>
#include <vector>

#include "common/formatting.hpp"
#include "common/printable.hpp"
#include "common/program.hpp"
#include "load/job/bad_rows.hpp"
#include "load/rows/data_format.hpp"
#include "load/rows/row_parser.hpp"
#include "load/target/target_table.hpp"

namespace tallow::load {
namespace {

using std::chrono::steady_clock;
using tools::ToolError;

constexpr std::size_t kShownOfRow = 200;  // bytes

// Bytes of the server's largest statement that are kept for all but the row.
constexpr std::uint64_t kStatementOverhead = 64ULL * 1024;

// The beginning of a row, short enough for one line.
std::string excerpt(std::string_view raw) {
  while (!raw.empty() && (raw.back() == '\n' || raw.back() == '\r')) raw.remove_suffix(1);
  const std::string text = tools::printable(raw.substr(0, kShownOfRow));
  return raw.size() > kShownOfRow ? text + "..." : text;
}

void checkFormat(std::string_view beginning) {
  const std::string format(foreignFormat(beginning));
  if (format.empty()) return;
  throw UnreadableData("the data looks like " + format +
                       ", and what can be loaded is CSV in UTF-8");
}

class RunningLoad {
 public:
  RunningLoad(LoadParts& load, StartedLoad started);

  void run();

 private:
  const JobProgress& committed() const noexcept { return load_.session.committed(); }

  void limitRows();
  void step();
  std::optional<std::string_view> nextBlock();
  void finishData();
  void requireFewRejects() const;
  void checkpoint(bool done);
  void warnOfLostFallbackFile();

  void handle(const Row& row);
  void takeHeader(const Row& row);
  std::vector<std::string> columnsOfHeader(const Row& row);
  void useColumns(const std::vector<std::string>& columns);
  void rejectNext(std::uint64_t number, const Row& row, const Diagnostic& reason);
  void reject(std::uint64_t number, const Row& row, const Diagnostic& reason);
  void tell() const;

  void goBack();
  void reconnect(const DatabaseError& error);
  void restoreCommitted();
  void sendBack();
  bool dropReadAhead();
  [[noreturn]] void abandon(const std::string& reason);

  LoadParts& load_;
  std::optional<TargetTable> table_;
  Rejects rejects_;
  std::unique_ptr<BlockReader> stream_;
  std::unique_ptr<RowSink> sink_;  // none while the columns are not known
  RowParser parser_;
  CheckpointPacer pacer_;
  BadRowSearch search_;
  JobProgress progress_;     // as it is in memory; the session knows what is committed
  std::uint64_t block_ = 0;  // the block that was delivered last
  bool warned_ = false;      // that the fallback file is lost
};

RunningLoad::RunningLoad(LoadParts& load, StartedLoad started)
    : load_(load),
      table_(std::move(started.table)),
      rejects_(std::move(started.rejects)),
      stream_(std::move(started.stream)),
      parser_(load.options.settings.delimiter),
      pacer_(load.options.checkpointEvery) {
  const std::uint64_t position = committed().position;
  if (position > 0) block_ = position - 1;
  pacer_.startAt(position, steady_clock::now());
  limitRows();
  restoreCommitted();
}

// The rest of a row is stored in the job's row, where each byte takes two.
void RunningLoad::limitRows() {
  const std::optional<std::uint64_t> statement = load_.store.database().traits().largestStatement;
  if (!statement) return;
  const std::uint64_t most = (*statement - std::min(*statement, kStatementOverhead)) / 2;
  if (most >= kLongestRow) return;
  parser_.setLongestRow(most, ", which is what the server's max_allowed_packet of " +
                                  std::to_string(*statement) +
                                  " bytes leaves room for; raise that");
}

void RunningLoad::run() {
  tell();
  load_.events.wait("waiting for data from a writer at " + load_.options.settings.pipe);
  while (!committed().done) {
    try {
      step();
    } catch (const RowsRefused& error) {
      search_.refused(error.rows(), error.diagnostic());
      goBack();
    } catch (const DatabaseError& error) {
      if (!load_.isLost(error)) throw;
      reconnect(error);
    }
    tell();
  }
  stream_->finish();
}

void RunningLoad::step() {
  const std::optional<std::string_view> data = nextBlock();
  if (!data) {
    finishData();
    return;
  }
  ++block_;
  if (block_ == committed().position) {
    // Its rows are loaded. This makes its position the newest sync point, so that the next one
    // leaves it restartable.
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

std::optional<std::string_view> RunningLoad::nextBlock() {
  const WriterWatch::Wait wait(load_.writer, 1);
  return stream_->read();
}

void RunningLoad::finishData() {
  const std::string& rest = parser_.unfinished();
  if (parser_.bytes() > 0) {
    load_.report.endsWithLineBreak = rest.empty() || rest.back() == '\r';
  }
  Row row;
  while (parser_.finish(row)) handle(row);
  if (progress_.header == Header::kDue) {
    abandon("the data is empty, without even the header; see why the writer sent nothing");
  }
  if (sink_) sink_->flush();  // May find one more bad row.
  requireFewRejects();
  checkpoint(true);
}

// With a share, the load has let rows through that may be too many for all of them.
void RunningLoad::requireFewRejects() const {
  const std::uint64_t seen = progress_.rows + progress_.rejects;
  if (load_.options.maxRejects.allowsAtEnd(progress_.rejects, seen)) return;
  throw ToolError(std::to_string(progress_.rejects) + " of " + tools::formatCount(seen, "row") +
                  " cannot be loaded, more than --max-rejects " + load_.options.maxRejects.text() +
                  "; " + Rejects::reasonsPath(load_.options.rejects) +
                  " says why: repair them, or put up with more");
}

void RunningLoad::checkpoint(bool done) {
  progress_.position = stream_->getPos();
  if (progress_.position != block_) {
    throw ToolError("the module answers position " + std::to_string(progress_.position) +
                    " after block " + std::to_string(block_) + "; use the module of this release");
  }
  if (sink_) sink_->flush();
  rejects_.flushToDisk();
  progress_.unfinishedRow = parser_.unfinished();
  progress_.lines = parser_.lines();
  progress_.bytes = parser_.bytes();
  progress_.rejectsLength = rejects_.length();
  progress_.reasonsLength = rejects_.reasonsLength();
  progress_.done = done;
  load_.session.commit(progress_);
  pacer_.committed(block_, steady_clock::now());
  load_.patience.renew();
  search_.clear();
  if (!done) warnOfLostFallbackFile();
}

void RunningLoad::warnOfLostFallbackFile() {
  if (warned_) return;
  const std::string fault = load_.fallbackFault(block_);
  if (fault.empty()) return;
  warned_ = true;
  tools::printError("warning: the fallback file " + load_.fallbackPath + " " + fault +
                    "; the load goes on, but it could not be restarted");
}

void RunningLoad::handle(const Row& row) {
  if (progress_.header == Header::kDue) {
    takeHeader(row);
    return;
  }
  const std::uint64_t number = progress_.rows + progress_.rejects + 1;
  if (search_.beginsStatement(number)) sink_->flush();
  std::optional<Diagnostic> reason = faultOf(row, progress_.columns.size());
  if (!reason) {
    const Diagnostic* known = search_.reasonAgainst(number);
    reason = known != nullptr ? *known : sink_->add(number, row);
  }
  if (reason) {
    rejectNext(number, row, *reason);
  } else {
    ++progress_.rows;
  }
}

void RunningLoad::takeHeader(const Row& row) {
  try {
    const std::vector<std::string> columns = columnsOfHeader(row);
    load_.store.database().requireLoadable(*table_, columns);
    useColumns(columns);
  } catch (const ToolError& error) {
    abandon(error.what());
  }
  progress_.header = Header::kRead;
}

std::vector<std::string> RunningLoad::columnsOfHeader(const Row& row) {
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
    table_ = createTable(load_.store.database(), load_.options.settings.table, names);
  }
  return matchColumns(names, *table_);
}

void RunningLoad::useColumns(const std::vector<std::string>& columns) {
  progress_.columns = columns;
  parser_.setSingleColumn(columns.size() == 1);
  SetAside setAside;
  if (!load_.options.maxRejects.isNone()) {
    setAside = [this](std::uint64_t number, const Row& row, const Diagnostic& reason) {
      --progress_.rows;
      reject(number, row, reason);
    };
  }
  sink_ = load_.store.database().openRows(*table_, columns, load_.options.settings.nullText,
                                          load_.options.batch, setAside);
}

// Rejects the row that has been read last. One that comes before it may be found bad first.
void RunningLoad::rejectNext(std::uint64_t number, const Row& row, const Diagnostic& reason) {
  if (load_.options.maxRejects.allows(progress_.rejects + 1, number)) {
    sink_->settle();
  } else {
    sink_->flush();
  }
  reject(number, row, reason);
}

// `number` is the row's, counted from the start of the job: only that decides whether there are too
// many.
void RunningLoad::reject(std::uint64_t number, const Row& row, const Diagnostic& reason) {
  if (!load_.options.maxRejects.allows(progress_.rejects + 1, number)) {
    throw ToolError("line " + std::to_string(row.line) + " (byte " + std::to_string(row.offset) +
                    ") cannot be loaded: " + describe(reason) + ": \"" + excerpt(row.raw) +
                    "\"; repair it, or set bad rows aside with --rejects FILE --max-rejects N");
  }
  rejects_.write(row, reason);
  ++progress_.rejects;
}

void RunningLoad::tell() const {
  load_.events.pulse(
      {parser_.bytes(), block_, progress_.rows, progress_.rejects, committed().position});
}

// Undoes what the database has not committed and starts again after the last checkpoint.
void RunningLoad::goBack() {
  ++load_.report.rewinds;
  try {
    load_.store.rollback();
  } catch (const DatabaseError& error) {
    reconnect(error);
    return;
  }
  restoreCommitted();
  sendBack();
}

void RunningLoad::reconnect(const DatabaseError& error) {
  ++load_.report.reconnections;
  sink_.reset();  // It belongs to the old connection.
  load_.patience.pauseAfter(error);
  AfterReconnection outcome{};
  load_.patience.insist([&] { outcome = load_.session.reconnect(); },
                        [&](const DatabaseError& failure) {
                          return failure.step() != Step::kConnect || load_.isLost(failure);
                        });
  restoreCommitted();
  switch (outcome) {
    case AfterReconnection::kFinished:
      break;
    case AfterReconnection::kStayHere:
      pacer_.committed(block_, steady_clock::now());
      search_.clear();
      load_.patience.renew();
      break;
    default:
      sendBack();
  }
}

// Sets everything in memory and in the rejects files to what the database says.
void RunningLoad::restoreCommitted() {
  progress_ = committed();
  parser_.restore(progress_.unfinishedRow, progress_.lines, progress_.bytes);
  sink_.reset();
  if (!progress_.columns.empty()) useColumns(progress_.columns);
  rejects_.cutTo(progress_.rejectsLength, progress_.reasonsLength);
}

// Makes the stream deliver again what came after the committed position.
void RunningLoad::sendBack() {
  const std::uint64_t position = committed().position;
  if (dropReadAhead()) pacer_.delivered(block_ + 1, steady_clock::now());
  stream_->setPos(position);
  pacer_.wentBack(position);
  block_ = position > 0 ? position - 1 : 0;
}

bool RunningLoad::dropReadAhead() {
  const WriterWatch::Wait wait(load_.writer, 1);
  return stream_->dropReadAhead();
}

// Gives up a job whose header is wrong, and leaves nothing of it.
void RunningLoad::abandon(const std::string& reason) {
  load_.session.withdraw();
  stream_.reset();
  load_.dropFallbackFile();
  throw ToolError(reason);
}

}  // namespace

void runLoad(LoadParts& load, StartedLoad started) {
  RunningLoad(load, std::move(started)).run();
}

}  // namespace tallow::load
