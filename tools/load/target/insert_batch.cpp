#include "load/target/insert_batch.hpp"

#include <utility>

#include "common/utf8.hpp"
#include "load/rows/bytes.hpp"
#include "load/target/sql_text.hpp"

namespace tallow::load {
namespace {

// The size of a cell in bytes. Most values are shorter.
constexpr std::size_t kCell = 64;

// Above this length in bytes, some databases have no plain character type.
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
      wide_(rows * columns_.size()),
      lengths_(rows * columns_.size()) {
  numbers_.reserve(rows);
}

std::optional<Diagnostic> InsertBatch::add(std::uint64_t number, const Row& row) {
  if (numbers_.empty() && !longValues_.empty()) {
    longValues_.clear();
    ++version_;
  }
  std::size_t cell = numbers_.size() * columns_.size();
  bytes_ += row.raw.size();
  for (const Field& field : row.fields) {
    if (field.isNull || (nullText_ && field.text == *nullText_)) {
      lengths_[cell] = SQL_NULL_DATA;
    } else {
      store(cell, field.text, row.isAscii);
    }
    ++cell;
  }
  numbers_.push_back(number);
  if (full()) flush();
  return std::nullopt;
}

void InsertBatch::store(std::size_t cell, std::string_view text, bool ascii) {
  if (!ascii && !wide_[cell] && !tools::isAscii(text)) {
    wide_[cell] = 1;
    ++version_;
  }
  const std::size_t room = wide_[cell] ? text.size() * sizeof(char16_t) : text.size();
  char* target = &cells_[cell * kCell];
  if (room > kCell) {
    std::string& longValue = longValues_[cell];
    longValue.resize(room);
    target = longValue.data();
    ++version_;
  }
  if (wide_[cell]) {
    const std::size_t units = tools::toUtf16(text, reinterpret_cast<char16_t*>(target));
    lengths_[cell] = static_cast<SQLLEN>(units * sizeof(char16_t));
  } else {
    copyShort(target, text.data(), text.size());
    lengths_[cell] = static_cast<SQLLEN>(text.size());
  }
}

void InsertBatch::flush() {
  std::size_t first = 0;
  while (first < numbers_.size()) {
    const std::size_t left = numbers_.size() - first;
    const std::size_t rows = left == capacity_ ? left : pieceOf(left);
    insertPiece(first, rows);
    first += rows;
  }
  numbers_.clear();
  bytes_ = 0;
}

void InsertBatch::insertPiece(std::size_t first, std::size_t rows) {
  Prepared& insertion = prepared(rows);
  bindAll(insertion, first * columns_.size());
  bool succeeded = false;
  try {
    insertion.statement.executePrepared(Step::kInsert);
    succeeded = true;
    requireAll(insertion.statement, rows);
  } catch (const DatabaseError& error) {
    // Rows that are missing after a success were refused, unless the fault is one that passes.
    const Fault fault = error.fault();
    if (fault == Fault::kLost || (fault == Fault::kPermanent && !succeeded)) throw;
    const auto begin = numbers_.begin() + static_cast<std::ptrdiff_t>(first);
    throw RowsRefused(error, {begin, begin + static_cast<std::ptrdiff_t>(rows)});
  }
}

// Checks the row count, and what the driver reports in addition to a success.
void InsertBatch::requireAll(const Statement& statement, std::size_t rows) const {
  statement.requireChanged(static_cast<std::int64_t>(rows), Step::kInsert);
  if (const auto& note = statement.note(); note && altersValue(*note, connection_.dialect())) {
    statement.fail(*note, Step::kInsert);
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

void InsertBatch::bindAll(Prepared& insertion, std::size_t firstCell) {
  if (insertion.version == version_ && insertion.firstCell == firstCell) return;
  bool changed = false;
  for (std::size_t i = 0; i < insertion.bound.size(); ++i) {
    // Wine 10's driver manager passes on lengths only up to the parameter that was bound last.
    if (changed && i + 1 == insertion.bound.size()) insertion.bound[i] = {};
    changed = bind(insertion, i, firstCell + i) || changed;
  }
  insertion.version = version_;
  insertion.firstCell = firstCell;
}

// Makes the parameter point to the cell's value. False if it does already.
bool InsertBatch::bind(Prepared& insertion, std::size_t parameter, std::size_t cell) {
  char* value = &cells_[cell * kCell];
  std::size_t size = kCell;
  if (!longValues_.empty()) {
    if (const auto found = longValues_.find(cell); found != longValues_.end()) {
      value = found->second.data();
      size = found->second.size();
    }
  }
  const Binding binding{value, wide_[cell] != 0};
  if (insertion.bound[parameter] == binding) return false;
  const SQLSMALLINT plainType = binding.wide ? SQL_WVARCHAR : SQL_VARCHAR;
  const SQLSMALLINT longType = binding.wide ? SQL_WLONGVARCHAR : SQL_LONGVARCHAR;
  const SQLULEN characters = binding.wide ? size / sizeof(char16_t) : size;
  const OdbcHandle& statement = insertion.statement.handle();
  statement.check(SQLBindParameter(statement.get(), static_cast<SQLUSMALLINT>(parameter + 1),
                                   SQL_PARAM_INPUT, binding.wide ? SQL_C_WCHAR : SQL_C_CHAR,
                                   size > kLongestPlainText ? longType : plainType, characters, 0,
                                   value, static_cast<SQLLEN>(size), &lengths_[cell]));
  // A long value is freed after the statement, and the next one may be at the same address.
  insertion.bound[parameter] = size == kCell ? binding : Binding{};
  return true;
}

}  // namespace tallow::load
