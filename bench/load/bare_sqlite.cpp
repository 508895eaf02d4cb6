// bare_sqlite DATABASE TABLE FILE: the bare loop that a load into SQLite is compared with. It
// parses the file with the same library and inserts with the same one, a prepared statement for
// each row and a commit for as many blocks, and does nothing else: no pipe, no module, no
// checkpoint, no check of what it reads. Prints rows and seconds.
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/text.hpp"
#include "load/rows/csv_library.hpp"

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr std::size_t kBlocksPerCommit = 16;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

class Load {
 public:
  Load(const std::string& file, const std::string& table) {
    sqlite3* database = nullptr;
    check(sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr));
    database_.reset(database);
    const std::string all = "SELECT * FROM " + table;
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(database, all.c_str(), -1, &statement, nullptr));
    std::string insertion = "INSERT INTO " + table + " VALUES (?";
    for (int i = 1; i < sqlite3_column_count(statement); ++i) insertion += ",?";
    sqlite3_finalize(statement);
    check(sqlite3_prepare_v2(database, (insertion + ")").c_str(), -1, &statement, nullptr));
    insertion_.reset(statement);
  }

  void run(const char* sql) {
    check(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr));
  }

  // The parser's text of a value ends with the next one.
  void take(const void* text, std::size_t length) {
    ++parameter_;
    if (text == nullptr) {
      check(sqlite3_bind_null(insertion_.get(), parameter_));
    } else {
      check(sqlite3_bind_text(insertion_.get(), parameter_, static_cast<const char*>(text),
                              static_cast<int>(length), SQLITE_TRANSIENT));
    }
  }
  void endRow() {
    parameter_ = 0;
    ++rows;
    sqlite3_step(insertion_.get());
    check(sqlite3_reset(insertion_.get()));
  }

  unsigned long long rows = 0;

 private:
  void check(int code) const {
    if (code != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(database_.get()));
  }

  std::unique_ptr<sqlite3, CloseDatabase> database_;
  std::unique_ptr<sqlite3_stmt, Finalize> insertion_;
  int parameter_ = 0;
};

void onField(void* text, std::size_t length, void* load) {
  static_cast<Load*>(load)->take(text, length);
}

void onRow(int /*terminator*/, void* load) {
  static_cast<Load*>(load)->endRow();
}

int isNeverSpace(unsigned char /*character*/) {
  return 0;
}

int run(const std::vector<std::string>& arguments) {
  Load load(arguments[0], arguments[1]);
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(arguments[2].c_str(), "rb"));
  if (!file) return 2;
  std::vector<char> block(kBlock);
  const tallow::load::CsvLibrary& csv = tallow::load::csvLibrary();
  csv_parser parser{};
  csv.init(&parser, CSV_STRICT | CSV_STRICT_FINI | CSV_EMPTY_IS_NULL);
  csv.setSpaceTest(&parser, isNeverSpace);
  const auto start = std::chrono::steady_clock::now();
  load.run("BEGIN");
  std::size_t blocks = 0;
  for (std::size_t got; (got = std::fread(block.data(), 1, kBlock, file.get())) > 0;) {
    if (csv.parse(&parser, block.data(), got, onField, onRow, &load) != got) return 2;
    if (++blocks % kBlocksPerCommit == 0) load.run("COMMIT; BEGIN");
  }
  if (csv.finish(&parser, onField, onRow, &load) != 0) return 2;
  load.run("COMMIT");
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  std::printf("%llu %.6f\n", load.rows, seconds.count());
  csv.release(&parser);
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 4) return 2;
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(tallow::tools::toUtf8(argv[i]));
  try {
    return run(arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bare_sqlite: %s\n", error.what());
    return 1;
  }
}
