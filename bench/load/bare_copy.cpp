// bare_copy ADDRESS LIBPQ TABLE FILE: the bare loop that tallow-load's COPY is compared with. It
// parses the file with the same parser and sends the values through the same libpq, and does
// nothing else: no pipe, no module, no checkpoint, no check of what it reads. The benchmark's
// values need no backslash. Prints rows and seconds.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/text.hpp"
#include "load/rows/csv_library.hpp"
#include "load/target/libpq.hpp"

namespace {

namespace pq = tallow::load::pq;
using tallow::load::LibPq;

constexpr std::size_t kBlock = std::size_t{1} << 20U;
constexpr std::size_t kPiece = std::size_t{16} * 1024;
constexpr std::size_t kLongestRow = std::size_t{64} * 1024;

class Load {
 public:
  Load(const LibPq& library, const std::string& address)
      : library_(library), connection_(connect(library, address), library.finish) {
    if (library_.status(connection_.get()) != pq::kConnectionOk) fail();
  }

  void run(const std::string& sql, int wanted) {
    const std::unique_ptr<pg_result, decltype(LibPq::clear)> result(
        library_.exec(connection_.get(), sql.c_str()), library_.clear);
    if (library_.resultStatus(result.get()) != wanted) fail();
  }

  void addValue(const void* text, std::size_t length) {
    if (text == nullptr) {
      std::memcpy(&buffer_[used_], "\\N", 2);
      used_ += 2;
    } else {
      std::memcpy(&buffer_[used_], text, length);
      used_ += length;
    }
    buffer_[used_++] = '\t';
  }

  void endRow() {
    buffer_[used_ - 1] = '\n';
    ++rows_;
    if (used_ >= kPiece) send();
  }

  void finish() {
    send();
    if (library_.putCopyEnd(connection_.get(), nullptr) != 1) fail();
    while (pg_result* result = library_.getResult(connection_.get())) {
      const bool good = library_.resultStatus(result) == pq::kCommandOk;
      library_.clear(result);
      if (!good) fail();
    }
  }

  unsigned long long rows() const { return rows_; }

 private:
  static pg_conn* connect(const LibPq& library, const std::string& address) {
    const char* const keywords[] = {"dbname", nullptr};
    const char* const values[] = {address.c_str(), nullptr};
    return library.connectdbParams(keywords, values, 1);
  }

  void send() {
    if (library_.putCopyData(connection_.get(), buffer_.data(), static_cast<int>(used_)) != 1) {
      fail();
    }
    used_ = 0;
  }

  [[noreturn]] void fail() const {
    throw std::runtime_error(library_.errorMessage(connection_.get()));
  }

  const LibPq& library_;
  std::unique_ptr<pg_conn, decltype(LibPq::finish)> connection_;
  std::vector<char> buffer_ = std::vector<char>(kPiece + kLongestRow);
  std::size_t used_ = 0;
  unsigned long long rows_ = 0;
};

void onField(void* text, std::size_t length, void* load) {
  static_cast<Load*>(load)->addValue(text, length);
}

void onRow(int /*terminator*/, void* load) {
  static_cast<Load*>(load)->endRow();
}

int isNeverSpace(unsigned char /*character*/) {
  return 0;
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

int run(const std::vector<std::string>& arguments) {
  const auto start = std::chrono::steady_clock::now();
  Load load(tallow::load::libpq(arguments[1]), arguments[0]);
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(arguments[3].c_str(), "rb"));
  if (!file) throw std::runtime_error("cannot read " + arguments[3]);
  const tallow::load::CsvLibrary& csv = tallow::load::csvLibrary();
  csv_parser parser{};
  csv.init(&parser, CSV_STRICT | CSV_EMPTY_IS_NULL);
  csv.setSpaceTest(&parser, isNeverSpace);
  std::vector<char> block(kBlock);
  load.run("BEGIN", pq::kCommandOk);
  load.run("COPY " + arguments[2] + " FROM STDIN", pq::kCopyIn);
  while (std::feof(file.get()) == 0 && std::ferror(file.get()) == 0) {
    const std::size_t length = std::fread(block.data(), 1, block.size(), file.get());
    csv.parse(&parser, block.data(), length, onField, onRow, &load);
  }
  load.finish();
  load.run("COMMIT", pq::kCommandOk);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  std::printf("%llu %.6f\n", load.rows(), elapsed.count());
  csv.release(&parser);
  return 0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(tallow::tools::toUtf8(argv[i]));
  if (arguments.size() != 4) {
    std::fprintf(stderr, "usage: bare_copy ADDRESS LIBPQ TABLE FILE\n");
    return 2;
  }
  try {
    return run(arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bare_copy: %s\n", error.what());
    return 1;
  }
}
