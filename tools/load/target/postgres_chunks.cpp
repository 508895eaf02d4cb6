#include "load/target/postgres_chunks.hpp"

#include <algorithm>
#include <utility>

#include "load/target/postgres_text.hpp"

namespace tallow::load {
namespace {

// Bytes of a chunk. A small one costs a savepoint for few rows, and a large one many rows that are
// sent again because of one.
constexpr std::size_t kChunk = std::size_t{512} * 1024;

// Bytes that are collected before they are sent.
constexpr std::size_t kPiece = std::size_t{16} * 1024;

// Bytes of a chunk that are collected before the answer to the chunk before is awaited.
constexpr std::size_t kHeldBack = std::size_t{64} * 1024;

constexpr const char* kFirst = "SAVEPOINT tallow_rows;";
constexpr const char* kNext = "RELEASE SAVEPOINT tallow_rows;SAVEPOINT tallow_rows;";
constexpr const char* kAgain = "ROLLBACK TO SAVEPOINT tallow_rows;";

}  // namespace

void RowChunk::add(std::uint64_t number, const Row& row) {
  text_.add(row);
  raw_ += row.raw;
  rows_.push_back({text_.text().size(), raw_.size(), number, row.line, row.offset});
}

void RowChunk::clear() {
  text_.clear();
  raw_.clear();
  rows_.clear();
}

std::string_view RowChunk::text(std::size_t begin, std::size_t end) const {
  return text_.text().substr(textBegin(begin), textBegin(end) - textBegin(begin));
}

Row RowChunk::row(std::size_t index) const {
  const std::size_t begin = index == 0 ? 0 : rows_[index - 1].rawEnd;
  Row row;
  row.raw = std::string_view(raw_).substr(begin, rows_[index].rawEnd - begin);
  row.line = rows_[index].line;
  row.offset = rows_[index].offset;
  return row;
}

CopyChunks::CopyChunks(PostgresSession& session, CopyTarget target,
                       const std::optional<std::string>& nullText, SetAside setAside)
    : session_(session),
      target_(std::move(target)),
      setAside_(std::move(setAside)),
      current_(nullText),
      sent_(nullText),
      savepoint_(kFirst) {}

std::optional<Diagnostic> CopyChunks::add(std::uint64_t number, const Row& row) {
  current_.add(number, row);
  const std::size_t size = current_.text().size();
  if (!isOpen_ && size >= kHeldBack) open();
  if (isOpen_ && size - sentBytes_ >= kPiece) sendNew();
  if (size >= kChunk) close();
  return std::nullopt;
}

void CopyChunks::flush() {
  if (current_.rows() > 0) close();
  finishSent();
  // What is left of the savepoint ends with the transaction.
  if (savepoint_ == kAgain) session_.run(kAgain);
  savepoint_ = kFirst;
}

void CopyChunks::open() {
  finishSent();
  begin();
  isOpen_ = true;
  sentBytes_ = 0;
}

void CopyChunks::sendNew() {
  session_.sendCopy(current_.text().substr(sentBytes_));
  sentBytes_ = current_.text().size();
}

// Ends the chunk, and does not wait for what the server says to it.
void CopyChunks::close() {
  if (!isOpen_) open();
  sendNew();
  session_.closeCopy();
  isOpen_ = false;
  std::swap(current_, sent_);
}

void CopyChunks::finishSent() {
  if (sent_.rows() == 0) return;
  if (const std::optional<CopyFailure> failure = session_.awaitCopy()) sendAgain(*failure);
  sent_.clear();
}

void CopyChunks::sendAgain(const CopyFailure& failure) {
  most_ = sent_.rows();
  learn({0, sent_.rows()}, failure);
  std::size_t done = 0;
  while (done < sent_.rows()) {
    const Piece piece = nextPiece(done);
    send(piece);
    if (const std::optional<CopyFailure> again = session_.awaitCopy()) {
      learn(piece, *again);
      if (piece.rows() > 1) continue;
      setAside_(sent_.number(piece.begin), sent_.row(piece.begin), again->error.diagnostic());
    } else {
      most_ = std::min(2 * most_, sent_.rows());
    }
    done = piece.end;
  }
}

// The rows before a suspect, the suspect alone, or as many as there may be.
CopyChunks::Piece CopyChunks::nextPiece(std::size_t begin) const {
  if (suspect_ && begin < *suspect_) return {begin, *suspect_};
  if (suspect_ && begin == *suspect_) return {begin, begin + 1};
  return {begin, std::min(begin + most_, sent_.rows())};
}

// Undoes the piece and decides how the next ones are cut.
void CopyChunks::learn(const Piece& piece, const CopyFailure& failure) {
  if (failure.error.fault() != Fault::kBadRow) throw failure.error;
  const std::optional<std::uint64_t> row = rowOfCopy(failure.context, target_.table);
  savepoint_ = kAgain;
  suspect_.reset();
  if (row && *row <= piece.rows()) suspect_ = piece.begin + *row - 1;
  if (piece.rows() == 1) return;
  // With n bad rows one after the other, sending all rows after each again would send about n * n.
  const bool isFirst = piece.rows() == sent_.rows();
  if (!suspect_) most_ = piece.rows() / 2;
  if (suspect_ && !isFirst) most_ = std::max<std::size_t>(most_ / 2, 1);
}

void CopyChunks::begin() {
  session_.beginTransaction();
  session_.beginCopy(savepoint_ + target_.statement);
  savepoint_ = kNext;
}

void CopyChunks::send(const Piece& piece) {
  begin();
  session_.sendCopy(sent_.text(piece.begin, piece.end));
  session_.closeCopy();
}

}  // namespace tallow::load
