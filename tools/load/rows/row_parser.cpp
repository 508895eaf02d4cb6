#include "load/rows/row_parser.hpp"

#include <algorithm>
#include <new>
#include <utility>

#include "common/utf8.hpp"
#include "load/rows/bytes.hpp"

namespace tallow::load {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr unsigned char kOptions = CSV_STRICT | CSV_STRICT_FINI | CSV_EMPTY_IS_NULL;

// How many bytes the library gets at once. Its buffer grows by a fixed step, which is set again for
// each piece, so that a long value costs linear time.
constexpr std::size_t kPiece = std::size_t{64} * 1024;

// The library strips what this function calls space. Here blanks belong to the value.
int isNeverSpace(unsigned char /*character*/) {
  return 0;
}

bool isLineBreak(char c) {
  return c == '\n' || c == '\r';
}

}  // namespace

RowParser::RowParser(char delimiter) : library_(csvLibrary()), delimiter_(delimiter) {
  resetCsv();
}

RowParser::~RowParser() {
  library_.release(&csv_);
}

void RowParser::resetCsv() {
  library_.release(&csv_);
  library_.init(&csv_, kOptions);
  library_.setDelimiter(&csv_, static_cast<unsigned char>(delimiter_));
  library_.setSpaceTest(&csv_, isNeverSpace);
  library_.setStep(&csv_, kPiece);
}

void RowParser::reset() {
  resetCsv();
  setInput({});
  carried_.clear();
  valuesUsed_ = 0;
  fields_.clear();
  kinds_ = {};
  begun_ = heldReturn_ = rowEnded_ = malformed_ = emitted_ = false;
  offset_ = lines_ = rowLines_ = 0;
}

void RowParser::restore(std::string_view unfinished, std::uint64_t lines, std::uint64_t bytes) {
  const std::string text(unfinished);
  reset();
  offset_ = bytes - text.size();
  begun_ = offset_ > 0;
  lines_ = lines;
  setInput(text);
  Row none;
  next(none);
}

void RowParser::setInput(std::string_view block) {
  settleRow();
  input_ = block;
  cursor_ = rowStart_ = 0;
}

bool RowParser::next(Row& row) {
  settleRow();
  if (!begun_ && !skipByteOrderMark()) return false;
  if (heldReturn_ && !input_.empty() && takeHeldReturn(row)) return true;
  while (cursor_ < input_.size()) {
    if (takeLine(row)) return true;
  }
  keepRest();
  return false;
}

bool RowParser::finish(Row& row) {
  settleRow();
  if (!begun_) takeAsData();
  begun_ = true;
  if (heldReturn_ && takeHeldReturn(row)) return true;
  if (carried_.empty()) return false;
  if (!malformed_ && library_.finish(&csv_, onField, onRow, this) != 0) {
    const std::uint64_t line = lines_ + linesBeforeOpenQuote(carried_, delimiter_) + 1;
    throw UnreadableData("the quote that opens in line " + std::to_string(line) +
                         " is not closed when the data ends");
  }
  emit(row);
  return true;
}

// Moves past the row that was returned.
void RowParser::settleRow() {
  if (!emitted_) return;
  emitted_ = rowEnded_ = malformed_ = false;
  offset_ += carried_.size() + (cursor_ - rowStart_);
  lines_ += rowLines_;
  rowLines_ = 0;
  rowStart_ = cursor_;
  carried_.clear();
  valuesUsed_ = 0;
  fields_.clear();
  kinds_ = {};
}

// False if the input is too short to decide. It is kept in carried_ then.
bool RowParser::skipByteOrderMark() {
  std::string head = carried_;
  head += input_.substr(0, kByteOrderMark.size() - carried_.size());
  if (head.size() < kByteOrderMark.size() && kByteOrderMark.starts_with(head)) {
    carried_ = head;
    input_ = {};
    return false;
  }
  begun_ = true;
  if (head == kByteOrderMark) {
    cursor_ = rowStart_ = kByteOrderMark.size() - carried_.size();
    offset_ = kByteOrderMark.size();
    carried_.clear();
  } else {
    takeAsData();
  }
  return true;
}

// Takes as data what was held back as a possible beginning of a byte order mark.
void RowParser::takeAsData() {
  scanLine(carried_, kinds_);
  feed(carried_);
}

bool RowParser::takeHeldReturn(Row& row) {
  heldReturn_ = false;
  const bool pair = !input_.empty() && input_.front() == '\n';
  const bool blank = carried_.size() == 1;
  if (!blank) feed(pair ? "\r\n" : "\r");
  cursor_ = pair ? 1 : 0;
  return endLine(blank, row);
}

// Takes the input up to the next line break, including that, or all of it. True if a row is
// complete.
bool RowParser::takeLine(Row& row) {
  const std::size_t lineBreak = cursor_ + scanLine(input_.substr(cursor_), kinds_);
  const bool missing = lineBreak == input_.size();
  heldReturn_ = !missing && input_[lineBreak] == '\r' && lineBreak + 1 == input_.size();
  if (missing || heldReturn_) {
    feed(input_.substr(cursor_, lineBreak - cursor_));
    cursor_ = input_.size();
    return false;
  }
  const bool pair = input_[lineBreak] == '\r' && input_[lineBreak + 1] == '\n';
  const std::size_t end = lineBreak + (pair ? 2 : 1);
  const bool blank = lineBreak == rowStart_ && carried_.empty();
  if (!blank) feed(input_.substr(cursor_, end - cursor_));
  cursor_ = end;
  return endLine(blank, row);
}

bool RowParser::endLine(bool blank, Row& row) {
  ++rowLines_;
  if (blank && !singleColumn_) {
    emitted_ = true;
    settleRow();
    return false;
  }
  if (blank) fields_.push_back({{}, true});
  if (!blank && !rowEnded_ && !malformed_) return false;
  emit(row);
  return true;
}

void RowParser::emit(Row& row) {
  if (!carried_.empty()) {
    carried_.append(input_, rowStart_, cursor_ - rowStart_);
    rowStart_ = cursor_;
  }
  row.raw = carried_.empty() ? input_.substr(rowStart_, cursor_ - rowStart_) : carried_;
  row.line = lines_ + 1;
  row.offset = offset_;
  checkLength(row.raw.size());
  row.defect = defectOf(row.raw);
  row.isAscii = !kinds_.nonAscii;
  std::swap(row.fields, fields_);
  if (malformed_) resetCsv();
  emitted_ = true;
}

RowDefect RowParser::defectOf(std::string_view raw) const {
  if (malformed_) return RowDefect::kMisplacedQuote;
  if (kinds_.nul) return RowDefect::kHoldsNul;
  return !kinds_.nonAscii || tools::isUtf8(raw) ? RowDefect::kNone : RowDefect::kNotUtf8;
}

void RowParser::onField(void* text, std::size_t length, void* self) {
  auto& parser = *static_cast<RowParser*>(self);
  if (parser.fields_.size() > kMostFields) return;
  if (text == nullptr) {
    parser.fields_.push_back({{}, true});
    return;
  }
  if (parser.values_.size() - parser.valuesUsed_ < length) parser.makeRoom(length);
  char* value = parser.values_.data() + parser.valuesUsed_;
  copyShort(value, static_cast<const char*>(text), length);
  parser.fields_.push_back({{value, length}, false});
  parser.valuesUsed_ += length;
}

// Makes room for more values, which moves those that the row has already.
void RowParser::makeRoom(std::size_t length) {
  const char* before = values_.data();
  std::vector<char> larger(2 * (valuesUsed_ + length));
  std::copy_n(before, valuesUsed_, larger.data());
  for (Field& field : fields_) {
    if (field.isNull) continue;
    field.text = {larger.data() + (field.text.data() - before), field.text.size()};
  }
  values_ = std::move(larger);
}

void RowParser::onRow(int /*terminator*/, void* self) {
  static_cast<RowParser*>(self)->rowEnded_ = true;
}

// Once the library has found a misplaced quote, the rest of the line belongs to the bad row.
void RowParser::feed(std::string_view text) {
  while (!text.empty() && !malformed_) {
    const std::string_view piece = text.substr(0, kPiece);
    if (csv_.entry_size > kPiece) library_.setStep(&csv_, csv_.entry_size);
    if (library_.parse(&csv_, piece.data(), piece.size(), onField, onRow, this) != piece.size()) {
      if (library_.error(&csv_) != CSV_EPARSE) throw std::bad_alloc();
      malformed_ = true;
    }
    text.remove_prefix(piece.size());
  }
}

// Moves the current row out of the input, which ends.
void RowParser::keepRest() {
  carried_.append(input_, rowStart_);
  setInput({});
  checkLength(carried_.size());
}

void RowParser::setLongestRow(std::uint64_t bytes, std::string reason) {
  longestRow_ = bytes;
  longestRowReason_ = std::move(reason);
}

void RowParser::checkLength(std::size_t length) const {
  if (length > longestRow_) {
    throw UnreadableData("the row that begins in line " + std::to_string(lines_ + 1) +
                         " is longer than " + std::to_string(longestRow_) + " bytes" +
                         longestRowReason_);
  }
}

std::uint64_t linesBeforeOpenQuote(std::string_view row, char delimiter) {
  std::uint64_t lines = 0;
  std::uint64_t opened = 0;
  bool fieldStart = true;
  bool quoted = false;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const char c = row[i];
    const bool endsLine = c == '\n' || (c == '\r' && row.substr(i + 1, 1) != "\n");
    if (c == '"' && quoted && row.substr(i + 1, 1) == "\"") {
      ++i;
    } else if (c == '"' && (quoted || fieldStart)) {
      quoted = !quoted;
      if (quoted) opened = lines;
    }
    fieldStart = !quoted && (c == delimiter || isLineBreak(c));
    if (endsLine) ++lines;
  }
  return opened;
}

}  // namespace tallow::load
