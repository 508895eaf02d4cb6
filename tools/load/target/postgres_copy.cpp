#include "load/target/postgres_copy.hpp"

#include <utility>

#include "load/target/postgres_text.hpp"

namespace tallow::load {
namespace {

// Bytes that are collected for the library.
constexpr std::size_t kPiece = std::size_t{16} * 1024;

// A COPY has no more rows, because their numbers are kept.
constexpr std::size_t kMostRows = std::size_t{1} << 20U;

}  // namespace

CopyStream::CopyStream(PostgresSession& session, CopyTarget target,
                       std::optional<std::string> nullText)
    : session_(session), target_(std::move(target)), text_(std::move(nullText)) {}

std::optional<Diagnostic> CopyStream::add(std::uint64_t number, const Row& row) {
  if (numbers_.empty()) {
    session_.beginTransaction();
    session_.beginCopy(target_.statement);
  }
  numbers_.push_back(number);
  text_.add(row);
  if (text_.text().size() >= kPiece) send();
  if (numbers_.size() == kMostRows) flush();
  return std::nullopt;
}

void CopyStream::flush() {
  if (numbers_.empty()) return;
  send();
  session_.closeCopy();
  if (const std::optional<CopyFailure> failure = session_.awaitCopy()) refuse(*failure);
  numbers_.clear();
}

void CopyStream::send() {
  session_.sendCopy(text_.text());
  text_.clear();
}

void CopyStream::refuse(const CopyFailure& failure) const {
  if (failure.error.fault() != Fault::kBadRow) throw failure.error;
  const std::optional<std::uint64_t> row = rowOfCopy(failure.context, target_.table);
  if (row && *row <= numbers_.size()) throw RowsRefused(failure.error, {numbers_[*row - 1]});
  throw RowsRefused(failure.error, numbers_);
}

}  // namespace tallow::load
