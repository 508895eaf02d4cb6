// bare_load CONNECTION TABLE COLUMNS ROWS FILE: the bare loop that tallow-load is compared with. It
// parses the file with the same parser and inserts through the same driver in the same batches, and
// does nothing else: no pipe, no module, no checkpoint, no check of what it reads. Prints rows and
// seconds.
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/text.hpp"
#include "load/rows/csv_library.hpp"
#include "load/target/odbc.hpp"
#include "load/target/sql_text.hpp"

namespace {

using tallow::load::Connection;
using tallow::load::Statement;

// Bytes of a bound value; no value of the benchmark's data is longer.
constexpr std::size_t kCell = 64;
constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr std::size_t kBlocksPerCommit = 16;

struct Load {
  Load(const std::string& connectionString, const std::string& table, std::size_t columnCount,
       std::size_t rowCount)
      : connection(connectionString),
        insertion(connection),
        columns(columnCount),
        cells(columnCount * rowCount * kCell),
        lengths(columnCount * rowCount) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < columns; ++i) names.push_back("c" + std::to_string(i));
    insertion.prepare(tallow::load::insertStatement(table, names, rowCount));
    for (std::size_t i = 0; i < lengths.size(); ++i) {
      insertion.handle().check(SQLBindParameter(
          insertion.handle().get(), static_cast<SQLUSMALLINT>(i + 1), SQL_PARAM_INPUT, SQL_C_CHAR,
          SQL_VARCHAR, kCell, 0, &cells[i * kCell], kCell, &lengths[i]));
    }
  }

  Connection connection;
  Statement insertion;
  std::size_t columns;
  std::vector<char> cells;
  std::vector<SQLLEN> lengths;
  std::size_t used = 0;  // cells
  unsigned long long rows = 0;
};

void onField(void* text, std::size_t length, void* context) {
  auto& load = *static_cast<Load*>(context);
  load.lengths[load.used] = text == nullptr ? SQL_NULL_DATA : static_cast<SQLLEN>(length);
  if (text != nullptr) std::memcpy(&load.cells[load.used * kCell], text, length);
  ++load.used;
}

void onRow(int /*terminator*/, void* context) {
  auto& load = *static_cast<Load*>(context);
  ++load.rows;
  if (load.used < load.lengths.size()) return;
  load.insertion.executePrepared();
  load.used = 0;
}

int isNeverSpace(unsigned char /*character*/) {
  return 0;
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

int run(const std::vector<std::string>& arguments) {
  Load load(arguments[0], arguments[1], std::stoul(arguments[2]), std::stoul(arguments[3]));
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(arguments[4].c_str(), "rb"));
  if (!file) throw std::runtime_error("cannot read " + arguments[4]);
  const tallow::load::CsvLibrary& csv = tallow::load::csvLibrary();
  csv_parser parser{};
  csv.init(&parser, CSV_STRICT | CSV_EMPTY_IS_NULL);
  csv.setSpaceTest(&parser, isNeverSpace);
  std::vector<char> block(kBlock);
  const auto start = std::chrono::steady_clock::now();
  std::size_t blocks = 0;
  while (const std::size_t length = std::fread(block.data(), 1, block.size(), file.get())) {
    csv.parse(&parser, block.data(), length, onField, onRow, &load);
    if (++blocks % kBlocksPerCommit == 0) load.connection.commit();
  }
  // The benchmark's files hold whole batches.
  if (load.used != 0) throw std::runtime_error("the file does not end with a whole batch");
  load.connection.commit();
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%llu %.6f\n", load.rows, elapsed.count());
  csv.release(&parser);
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(tallow::tools::toUtf8(argv[i]));
  if (arguments.size() != 5) {
    std::fprintf(stderr, "usage: bare_load CONNECTION TABLE COLUMNS ROWS FILE\n");
    return 2;
  }
  try {
    return run(arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bare_load: %s\n", error.what());
    return 1;
  }
}
