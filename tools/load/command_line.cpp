#include "load/command_line.hpp"

#include <algorithm>

#include "common/init_string.hpp"
#include "common/pipe_names.hpp"
#include "common/program.hpp"
#include "common/quoting.hpp"
#include "common/surroundings.hpp"
#include "common/writer_wait.hpp"
#include "load/connection_source.hpp"
#include "load/secrets.hpp"
#include "load/target/sql_text.hpp"

namespace tallow::load {
namespace {

using tools::ExitStatus;
using tools::MisuseError;

constexpr std::size_t kLongestJobName = 255;

constexpr const char* kExamples = R"(Examples:
  Load CSV with a header into a file of SQLite; file and table are made if they are not there:
    tallow-load --pipe \\.\pipe\orders --to sqlite:orders.db --table orders --header --create
  The same into the database whose connection string is the one line of shop.txt, which only you
  can read:
    tallow-load --pipe \\.\pipe\orders --to-file shop.txt --table orders --header --create
  The same with a data source, or another string without a password:
    tallow-load --pipe \\.\pipe\orders --to "DSN=shop" --table orders --header --create
  Set aside up to 100 bad rows, with the connection string in TALLOW_TO:
    tallow-load --pipe \\.\pipe\orders --table orders --rejects bad.csv --max-rejects 100
  Go on after a failure; the writer sends the same data again from its beginning:
    the same command with --restart

Connection strings are, for example:
    sqlite:C:\data\orders.db                            a file of SQLite, with nothing to install
    postgresql://loader@db/shop                         PostgreSQL by its own libpq.dll: the fastest
    Driver={MariaDB Unicode};Server=db;Database=shop    any other by its ODBC driver
    Driver={PostgreSQL Unicode};Server=db;Database=shop;Uid=loader;Pwd=...

The position of the load stands in the database, in the table tallow_checkpoint, and is committed
together with the rows: whatever dies, a restart puts every row into the table exactly once.

Exit status: 0 done; 1 failed, nothing to restart from; 2 misused, nothing was started; 3 stopped,
the same restart may help now; 4 stopped, mend what the line says, then restart.)";

char delimiterFrom(const std::string& text) {
  if (text == "\\t" || text == "tab") return '\t';
  const bool good = text.size() == 1 && text != "\"" && text != "\r" && text != "\n" &&
                    static_cast<unsigned char>(text[0]) < 0x80;
  if (!good) {
    throw MisuseError(
        "--delimiter must be one ASCII character (or tab), and not a quote or a line "
        "break");
  }
  return text[0];
}

RejectLimit rejectLimitFrom(const std::string& text) {
  if (const std::optional<RejectLimit> limit = RejectLimit::parse(text)) return *limit;
  throw MisuseError("--max-rejects " + text +
                    " is no limit; give a number of rows up to 1000000000, or a share from "
                    "0.0001% to 100%");
}

std::vector<std::string> splitNames(const std::string& list) {
  std::vector<std::string> names;
  std::size_t begin = 0;
  while (begin <= list.size()) {
    const std::size_t comma = std::min(list.find(',', begin), list.size());
    names.push_back(list.substr(begin, comma - begin));
    begin = comma + 1;
  }
  if (std::ranges::find(names, "") != names.end()) {
    throw MisuseError("--columns holds an empty name; write them as A,B,C");
  }
  return names;
}

// Refuses what would make a restart impossible for the module.
void checkInitString(const std::string& text) {
  const tools::InitStringReport report = tools::explainInitString(text);
  if (const std::string complaint = report.firstComplaint(); !complaint.empty()) {
    throw MisuseError("--init: " + complaint);
  }
  if (!report.effective.needFullBlock) {
    throw MisuseError(
        "--init: a load needs full blocks to be restarted; leave Need_Full_Block=no "
        "out");
  }
  if (report.effective.noFallback) {
    throw MisuseError("--init: a load needs the fallback file; leave No_FallBack out");
  }
}

// The command, without a connection string that comes from a file or the environment.
std::string commandOf(const std::vector<std::string>& arguments) {
  std::string command = "tallow-load";
  bool isConnection = false;
  for (const std::string& argument : arguments) {
    isConnection = isConnection || argument.starts_with("--to=");
    command += " " + tools::quotedArgument(isConnection ? withoutSecrets(argument) : argument);
    isConnection = argument == "--to";
  }
  return command;
}

std::string restartCommandOf(std::vector<std::string> arguments) {
  std::erase_if(arguments, [](const std::string& argument) {
    return argument == "--restart" || argument == "--start-over" || argument == "--rows-removed";
  });
  return commandOf(arguments) + " --restart";
}

std::string jobFromPipe(const std::string& pipe) {
  return pipe.substr(pipe.rfind('\\') + 1);
}

// Checks the number of values in a statement, which is counted in 16 bits. Many databases allow
// fewer, but that is known only after connecting.
void checkBatch(const LoadOptions& options) {
  constexpr std::size_t kMost = 65535;
  if (options.batch * options.columns.size() <= kMost) return;
  throw MisuseError("--batch " + std::to_string(options.batch) + " with " +
                    std::to_string(options.columns.size()) +
                    " columns is more than a statement can hold; give at most --batch " +
                    std::to_string(std::max<std::size_t>(kMost / options.columns.size(), 1)));
}

void checkAgainstEachOther(const LoadOptions& options, bool restart, bool startOver) {
  if (restart && startOver) {
    throw MisuseError("--restart goes on and --start-over begins anew; give one of them");
  }
  if (options.rowsRemoved && !startOver) {
    throw MisuseError("--rows-removed goes with --start-over; give both");
  }
  if (options.create && options.columns.empty() && !options.header) {
    throw MisuseError(
        "--create needs the columns; give --columns A,B,C, or --header if the data "
        "begins with their names");
  }
  if (!options.maxRejects.isNone() && options.rejects.empty()) {
    throw MisuseError("--max-rejects needs a place for the rejected rows; name it with --rejects");
  }
  if (options.job.empty() || options.job.size() > kLongestJobName) {
    throw MisuseError("--job must have 1 to 255 bytes");
  }
}

}  // namespace

std::optional<ExitStatus> readCommandLine(const std::vector<std::string>& arguments,
                                          LoadOptions& options) {
  std::string columns;
  std::string delimiter = ",";
  std::string nullText;
  std::string toFile;
  std::string maxRejects = "0";
  bool restart = false;
  bool startOver = false;

  CLI::App app(
      "Loads the rows that arrive on a named pipe into a database table, each exactly once.",
      "tallow-load");
  tools::prepare(app, kExamples);
  app.add_option("--pipe", options.settings.pipe,
                 "Name of the pipe, for example \\\\.\\pipe\\orders")
      ->required()
      ->option_text("NAME");
  app.add_option("--to-file", toFile,
                 "File whose only line is the connection string (default: what the environment "
                 "variable TALLOW_TO holds)")
      ->option_text("FILE");
  app.add_option("--to", options.connection,
                 "The connection string itself; a password in it is seen by whoever lists the "
                 "processes")
      ->option_text("CONNECTION");
  app.add_option("--table", options.settings.table, "Table to load into, NAME or SCHEMA.NAME")
      ->required()
      ->option_text("TABLE");
  app.add_option("--columns", columns,
                 "Columns that the fields go to, in their order, as A,B,C (default: those that the "
                 "header names, or all of the table)")
      ->option_text("A,B,...");
  app.add_flag("--header", options.header, "The first row names the columns and is not loaded");
  app.add_option("--delimiter", delimiter, "Character between fields, or tab (default ,)")
      ->option_text("C");
  CLI::Option* null = app.add_option("--null", nullText,
                                     "Text that means NULL; an unquoted empty field always does")
                          ->option_text("TEXT");
  app.add_flag("--create", options.create, "Make the table, with text columns, if it is missing");
  app.add_option("--job", options.job,
                 "Name of the job in tallow_checkpoint (default: the pipe's last part)")
      ->option_text("NAME");
  app.add_option("--checkpoint-every", options.checkpointEvery,
                 "Blocks from one commit to the next (default 16)")
      ->check(CLI::Range(1, 1'000'000'000))
      ->option_text("BLOCKS");
  app.add_option("--batch", options.batch,
                 "Rows for each INSERT (default: 100, or less for many columns)")
      ->check(CLI::Range(1, 32767))
      ->option_text("ROWS");
  app.add_option("--rejects", options.rejects,
                 "File for rows that cannot be loaded, as they came; FILE.reasons.csv says why")
      ->option_text("FILE");
  app.add_option("--max-rejects", maxRejects,
                 "Rejected rows to put up with before the load stops (default 0), or a share of "
                 "the job's rows such as 1%, which lets ten through whatever the share while the "
                 "load runs, but not at its end")
      ->option_text("N|N%");
  app.add_option("--retry", options.retrySeconds,
                 "Seconds to go on trying when the database is out of reach or locked (default 60)")
      ->check(CLI::Range(0, 1'000'000))
      ->option_text("SECONDS");
  tools::addWaitOption(app, options.waitSeconds);
  app.add_flag("--restart", restart, "Go on with a job from what the database says of it");
  app.add_flag("--start-over", startOver, "Give up what is recorded of the job and begin it anew");
  app.add_flag(
      "--rows-removed", options.rowsRemoved,
      "With --start-over: the rows that the job had loaded have been removed from the table");
  app.add_option("--init", options.settings.init,
                 "Initialisation string for the module, for example \"Block_size=65536\"")
      ->option_text("STRING");
  app.add_option("--module", options.module,
                 "The module (default: tallowin.dll beside this program)")
      ->option_text("FILE");
  app.add_option("--libpq", options.libpqFile,
                 "PostgreSQL's client library, if it is not beside this program (default: what the "
                 "environment variable TALLOW_LIBPQ holds)")
      ->option_text("FILE");
  app.add_flag("--json", options.json, "Print the outcome as JSON");
  if (const auto status = tools::parse(app, arguments)) return status;

  tools::requirePipeName(options.settings.pipe);
  options.settings.delimiter = delimiterFrom(delimiter);
  if (null->count() > 0) options.settings.nullText = nullText;
  options.maxRejects = rejectLimitFrom(maxRejects);
  if (!columns.empty()) options.columns = splitNames(columns);
  if (options.job.empty()) options.job = jobFromPipe(options.settings.pipe);
  if (restart) options.mode = RunMode::kRestart;
  if (startOver) options.mode = RunMode::kStartOver;
  checkBatch(options);
  checkAgainstEachOther(options, restart, startOver);
  checkInitString(options.settings.init);
  parseTableName(options.settings.table);  // throws if it is not a table's name
  if (!options.rejects.empty()) options.settings.rejectsFile = tools::fullPath(options.rejects);
  options.connection = connectionFrom(options.connection, toFile);
  if (options.libpqFile.empty()) options.libpqFile = tools::environmentValue(L"TALLOW_LIBPQ");
  options.sameCommand = commandOf(arguments);
  options.restartCommand = restartCommandOf(arguments);
  return std::nullopt;
}

}  // namespace tallow::load
