// A load from beginning to end.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "load/job/bad_rows.hpp"
#include "load/job/block_reader.hpp"
#include "load/job/job_session.hpp"
#include "load/job/job_store.hpp"
#include "load/job/protocol.hpp"
#include "load/job/rejects.hpp"
#include "load/job/writer_watch.hpp"
#include "load/load_options.hpp"
#include "load/rows/row_parser.hpp"
#include "load/target/target_table.hpp"

namespace tallow::load {

// What a load has done, for the summary.
struct LoadReport {
  JobProgress progress;          // what is committed
  std::uint64_t rowsBefore = 0;  // of these, committed by earlier runs
  std::uint64_t bytesBefore = 0;
  std::uint64_t reconnections = 0;
  std::uint64_t rewinds = 0;              // returns to the checkpoint within the run
  bool wasDone = false;                   // an earlier run had finished the job
  bool nothingBegun = true;               // run the same command again, not a restart
  std::optional<bool> endsWithLineBreak;  // known if this run has seen the end of the data
};

// Where the load is, for the display.
struct LoadPulse {
  std::uint64_t bytes = 0;
  std::uint64_t block = 0;
  std::uint64_t rows = 0;
  std::uint64_t rejects = 0;
  std::uint64_t checkpoint = 0;  // block
};

// Called on the load's thread.
struct LoadEvents {
  std::function<void(const LoadPulse&)> pulse;
  // From now on the load can be restarted. It begins to wait for this.
  std::function<void(const std::string& what)> wait;
};

class Loader {
 public:
  Loader(const LoadOptions& options, LoadEvents events, WriterWatch& writer);
  ~Loader();

  // Runs the load. Throws ToolError, whose status says whether a restart can continue it.
  void run();

  // Valid even after run() has thrown.
  LoadReport report() const;
  // What run() throws if the load ends here for this reason.
  tools::ToolError ending(const std::string& text, tools::ExitStatus status) const;

 private:
  void begin();
  Beginning connectAndLook();
  void limitRows();
  Beginning look();
  void prepareTable();
  void checkRejects() const;
  std::unique_ptr<RowSink> openRows(const std::vector<std::string>& columns);
  void openRejects();
  void openStream();
  void takeJob();
  void removeLeftovers() const;
  void removeLeftFallbackFile() const;
  void position();

  void loadBlocks();
  void step();
  std::optional<std::string_view> nextBlock();
  static void checkFormat(std::string_view beginning);
  void finishData();
  void checkpoint(bool done);

  void handle(const Row& row);
  void takeHeader(const Row& row);
  std::vector<std::string> columnsOfHeader(const Row& row);
  void useColumns(const std::vector<std::string>& columns);
  void rejectNext(const Row& row, const Diagnostic& reason);
  void reject(const Row& row, const Diagnostic& reason);
  void tell() const;

  bool isLost(const DatabaseError& error) const;
  void goBack();
  void reconnect(const DatabaseError& error);
  void insist(const std::function<void()>& attempt,
              const std::function<bool(const DatabaseError&)>& passes);
  void pauseAfter(const DatabaseError& error);
  void restoreCommitted();
  void sendBack();
  bool dropReadAhead();

  [[noreturn]] void abandon(const std::string& reason);
  [[noreturn]] void fail(const std::string& text, tools::ExitStatus status) const;
  [[noreturn]] void explainRefusal(const client::RequestFailed& error) const;
  bool isBegun() const;
  bool canBeRestarted() const;

  const LoadOptions& options_;
  LoadEvents events_;
  WriterWatch& writer_;
  std::string initString_;  // with the fallback file's name
  std::string fallbackPath_;

  SqlJobStore store_;
  JobSession session_;
  std::optional<TargetTable> table_;
  std::unique_ptr<Rejects> rejects_;
  std::unique_ptr<BlockReader> stream_;
  std::unique_ptr<RowSink> sink_;

  RowParser parser_;
  CheckpointPacer pacer_;
  RetryBudget budget_;
  BadRowSearch search_;
  std::optional<JobRecord> givenUp_;  // of a job that is started over
  JobProgress start_;                 // of a job that begins
  JobProgress progress_;              // as it is in memory; the session knows what is committed
  std::uint64_t block_ = 0;           // the block that was delivered last
  bool dropNext_ = false;  // the next block is that of the checkpoint, which is loaded already
  bool goesOn_ = false;    // there is a job to restart
  bool taken_ = false;     // the job has been taken
  bool warned_ = false;    // has warned that the fallback file is lost
  bool done_ = false;
  LoadReport report_;
};

}  // namespace tallow::load
