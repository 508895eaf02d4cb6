// Cuts a stream of blocks into rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "load/rows/bytes.hpp"
#include "load/rows/csv_library.hpp"

namespace tallow::load {

// The most bytes that a row may have. A longer one is most likely a quote that was never closed.
constexpr std::uint64_t kLongestRow = 64ULL * 1024 * 1024;

// The most fields that a row may have, more than any database has columns. Of a row with more, one
// more is kept, so that it fits no table.
constexpr std::size_t kMostFields = 32768;

// One value of a row. An unquoted empty field is null.
struct Field {
  std::string_view text;
  bool isNull = false;
};

enum class RowDefect { kNone, kMisplacedQuote, kNotUtf8, kHoldsNul };

// One row. The views are valid until the parser is used again.
struct Row {
  std::vector<Field> fields;
  std::string_view raw;      // as it came, including its line break
  std::uint64_t line = 0;    // where it begins, counted from 1
  std::uint64_t offset = 0;  // bytes of the data before it
  RowDefect defect = RowDefect::kNone;
  bool isAscii = true;
};

// The data cannot be cut into rows from here on. what() says why, with the line.
class UnreadableData : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Cuts RFC 4180 text, given block by block, into rows. A row may extend over any number of blocks,
// and a block may end anywhere: inside a character, a line break or the byte order mark at the
// start. CR LF, LF and CR end a row. A blank line is skipped, unless rows have one column, in which
// case it is a row with one null.
class RowParser {
 public:
  // Throws MisuseError if the library is missing.
  explicit RowParser(char delimiter);
  ~RowParser();
  RowParser(const RowParser&) = delete;
  RowParser& operator=(const RowParser&) = delete;

  // Whether a blank line is a row.
  void setSingleColumn(bool single) noexcept { singleColumn_ = single; }

  // Sets the most bytes of a row, at most kLongestRow, and why there can't be more.
  void setLongestRow(std::uint64_t bytes, std::string reason);

  // Sets the parser back to where unfinished(), lines() and bytes() had these values.
  void restore(std::string_view unfinished, std::uint64_t lines, std::uint64_t bytes);

  // Sets the next block, which must stay unchanged until next() has returned false.
  void setInput(std::string_view block);
  // The next row that ends in the input. Throws UnreadableData if a row is too long.
  bool next(Row& row);
  // After the last block: the last row, if its line break is missing. Throws UnreadableData if a
  // quote is still open.
  bool finish(Row& row);

  // The bytes of the row that has begun but not ended. Valid after next() has returned false.
  const std::string& unfinished() const noexcept { return carried_; }
  // Line breaks before the unfinished row.
  std::uint64_t lines() const noexcept { return lines_; }
  // The number of bytes read so far, including the unfinished row.
  std::uint64_t bytes() const noexcept { return offset_ + carried_.size(); }

 private:
  static void onField(void* text, std::size_t length, void* self);
  static void onRow(int terminator, void* self);

  void reset();
  void resetCsv();
  void settleRow();
  bool skipByteOrderMark();
  void takeAsData();
  bool takeHeldReturn(Row& row);
  bool takeLine(Row& row);
  bool endLine(bool blank, Row& row);
  void emit(Row& row);
  RowDefect defectOf(std::string_view raw) const;
  void feed(std::string_view text);
  void makeRoom(std::size_t length);
  void keepRest();
  void checkLength(std::size_t length) const;

  const CsvLibrary& library_;
  csv_parser csv_{};
  char delimiter_;
  std::uint64_t longestRow_ = kLongestRow;
  std::string longestRowReason_;
  bool singleColumn_ = false;

  std::string_view input_;
  std::size_t cursor_ = 0;    // next byte of the input to be parsed
  std::size_t rowStart_ = 0;  // where the current row begins in the input, or continues
  std::string carried_;       // the row's bytes from earlier blocks
  bool begun_ = false;        // the byte order mark has been handled
  bool heldReturn_ = false;   // carried_ ends in a CR whose LF may follow

  ByteKinds kinds_;  // of the current row, as far as it has been parsed
  bool rowEnded_ = false;
  bool malformed_ = false;
  bool emitted_ = false;        // the current row has been returned
  std::uint64_t offset_ = 0;    // of the current row
  std::uint64_t lines_ = 0;     // before the current row
  std::uint64_t rowLines_ = 0;  // inside the current row
  std::vector<char> values_;    // the texts of the row's fields, one after the other
  std::size_t valuesUsed_ = 0;  // of these bytes
  std::vector<Field> fields_;
};

// The number of line breaks before the quote that `row` opens and does not close.
std::uint64_t linesBeforeOpenQuote(std::string_view row, char delimiter);

}  // namespace tallow::load
