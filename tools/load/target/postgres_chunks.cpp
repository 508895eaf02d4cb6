#include "load/target/postgres_chunks.hpp"

#include <algorithm>
#include <utility>

#include "load/target/postgres_text.hpp"

namespace tallow::load {
namespace {

// Bytes of a chunk. A small one costs a savepoint for few rows, and a large one many rows that are
// sent again because of one.
constexpr std::size_t kChunk = std::size_t{256} * 1024;

// After a refusal the rows behind it are sent in pieces, which begin at this part of the chunk and
// double with each success. So many bad rows on end do not cost their square.
constexpr std::size_t kFirstPart = 8;

constexpr const char* kSavepoint = "SAVEPOINT tallow_rows;";
constexpr const char* kRelease = "RELEASE SAVEPOINT tallow_rows;";
constexpr const char* kGoBack = "ROLLBACK TO SAVEPOINT tallow_rows";

}  // namespace

void RowChunk::add(const Row& row) {
  text_.add(row);
  raw_ += row.raw;
  rows_.push_back({text_.text().size(), raw_.size(), row.line, row.offset});
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
      collected_(nullText),
      sent_(nullText) {}

std::optional<Diagnostic> CopyChunks::add(std::uint64_t /*number*/, const Row& row) {
  collected_.add(row);
  if (collected_.size() >= kChunk) exchange();
  return std::nullopt;
}

void CopyChunks::flush() {
  exchange();
  finishSent();
  // The transaction may end now, and its savepoints with it.
  if (hasSavepoint_) session_.run(kRelease);
  hasSavepoint_ = false;
}

// Sends what was collected as soon as the server has done with the chunk before.
void CopyChunks::exchange() {
  finishSent();
  if (collected_.rows() == 0) return;
  std::swap(collected_, sent_);
  send({0, sent_.rows()});
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
      setAside_(sent_.row(piece.begin), again->error.diagnostic());
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
  session_.run(kGoBack);
  const std::optional<std::uint64_t> row = rowOfCopy(failure.context, target_.table);
  suspect_.reset();
  if (row && *row <= piece.rows()) {
    suspect_ = piece.begin + *row - 1;
    most_ = std::max<std::size_t>(std::min(most_, piece.rows()) / kFirstPart, 1);
  } else {
    most_ = std::max<std::size_t>(piece.rows() / 2, 1);
  }
}

void CopyChunks::send(const Piece& piece) {
  session_.beginTransaction();
  session_.beginCopy((hasSavepoint_ ? kRelease : "") + (kSavepoint + target_.statement));
  hasSavepoint_ = true;
  session_.sendCopy(sent_.text(piece.begin, piece.end));
  session_.closeCopy();
}

}  // namespace tallow::load
