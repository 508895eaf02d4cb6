#include "load/insert_batch.hpp"

#include <cstring>
#include <utility>

#include "load/sql_text.hpp"

namespace tallow::load {
namespace {

/// Bytes of a cell. Most values are shorter.
constexpr std::size_t kCell = 64;

/// Above this many bytes some databases have no plain character type.
constexpr std::size_t kLongestPlainText = 4000;

}  // namespace

InsertBatch::InsertBatch(const Connection& connection, std::string table,
                         std::vector<std::string> quotedColumns, std::size_t rows,
                         std::optional<std::string> nullText)
    : connection_(connection),
      table_(std::move(table)),
      columns_(std::move(quotedColumns)),
      capacity_(rows),
      nullText_(std::move(nullText)),
      cells_(rows * columns_.size() * kCell),
      lengths_(rows * columns_.size()) {
  numbers_.reserve(rows);
}

void InsertBatch::add(std::uint64_t number, std::span<const Field> fields) {
  if (numbers_.empty()) longValues_.clear();
  std::size_t cell = numbers_.size() * columns_.size();
  for (const Field& field : fields) {
    const bool isNull = field.isNull || (nullText_ && field.text == *nullText_);
    lengths_[cell] = isNull ? SQL_NULL_DATA : static_cast<SQLLEN>(field.text.size());
    if (field.text.size() > kCell && !isNull) {
      longValues_.emplace(cell, field.text);
    } else if (!isNull) {
      std::memcpy(&cells_[cell * kCell], field.text.data(), field.text.size());
    }
    ++cell;
  }
  numbers_.push_back(number);
}

void InsertBatch::insert() {
  std::size_t first = 0;
  while (first < numbers_.size()) {
    const std::size_t left = numbers_.size() - first;
    const std::size_t rows = left == capacity_ ? left : pieceOf(left);
    insertPiece(first, rows);
    first += rows;
  }
  numbers_.clear();
}

void InsertBatch::insertPiece(std::size_t first, std::size_t rows) {
  Prepared& insertion = prepared(rows);
  const std::size_t firstCell = first * columns_.size();
  for (std::size_t i = 0; i < rows * columns_.size(); ++i) bind(insertion, i, firstCell + i);
  try {
    insertion.statement.executePrepared(Step::kInsert);
  } catch (const DatabaseError& error) {
    if (classify(error.diagnostic(), connection_.dialect(), Step::kInsert) != Fault::kBadRow) throw;
    const auto begin = numbers_.begin() + static_cast<std::ptrdiff_t>(first);
    throw RowsRefused(error, {begin, begin + static_cast<std::ptrdiff_t>(rows)});
  }
}

InsertBatch::Prepared& InsertBatch::prepared(std::size_t rows) {
  std::unique_ptr<Prepared>& insertion = statements_[rows];
  if (!insertion) {
    auto fresh = std::make_unique<Prepared>(connection_);
    fresh->statement.prepare(insertStatement(table_, columns_, rows));
    fresh->bound.resize(rows * columns_.size());
    insertion = std::move(fresh);
  }
  return *insertion;
}

/// Lets the parameter point to the cell's value, unless it does already.
void InsertBatch::bind(Prepared& insertion, std::size_t parameter, std::size_t cell) {
  char* value = &cells_[cell * kCell];
  std::size_t size = kCell;
  if (lengths_[cell] > static_cast<SQLLEN>(kCell)) {
    std::string& longValue = longValues_.at(cell);
    value = longValue.data();
    size = longValue.size();
  }
  if (insertion.bound[parameter] == value) return;
  const OdbcHandle& statement = insertion.statement.handle();
  statement.check(SQLBindParameter(statement.get(), static_cast<SQLUSMALLINT>(parameter + 1),
                                   SQL_PARAM_INPUT, SQL_C_CHAR,
                                   size > kLongestPlainText ? SQL_LONGVARCHAR : SQL_VARCHAR, size,
                                   0, value, static_cast<SQLLEN>(size), &lengths_[cell]));
  // A long value is gone after the statement; the next one may lie at the same address.
  insertion.bound[parameter] = size == kCell ? value : nullptr;
}

}  // namespace tallow::load
