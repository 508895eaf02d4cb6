// Inserts rows into the table: many rows in a statement, values as text.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "load/rows/row_parser.hpp"
#include "load/target/database.hpp"
#include "load/target/odbc.hpp"

namespace tallow::load {

// Collects rows and inserts them. Each value is copied into a cell, whose address is bound once.
// Only a value that is longer than a cell needs a call that binds it where it is. Plain ASCII is
// sent as bytes. A cell that has had another character uses UTF-16 from then on, because drivers
// read bytes in the character set that the system is set to.
class InsertBatch : public RowSink {
 public:
  // `rows` is the number of rows in a statement, at least 1. The connection must outlive the batch.
  InsertBatch(const Connection& connection, std::string table,
              std::vector<std::string> quotedColumns, std::size_t rows,
              std::optional<std::string> nullText);

  std::optional<Diagnostic> add(std::uint64_t number, const Row& row) override;
  void flush() override;

 private:
  // What a parameter points to.
  struct Binding {
    const char* value = nullptr;
    bool wide = false;

    bool operator==(const Binding&) const = default;
  };
  struct Prepared {
    explicit Prepared(const Connection& connection) : statement(connection) {}
    Statement statement;
    std::vector<Binding> bound;  // by parameter
    std::uint64_t version = 0;   // the version of the cells' places when they were bound
    std::size_t firstCell = 0;   // the cell that the first parameter points to
  };

  static constexpr std::size_t kMostBytes = std::size_t{2} << 20U;

  // Whether it is full of rows or of bytes: the size of a statement has a limit.
  bool full() const noexcept { return numbers_.size() == capacity_ || bytes_ >= kMostBytes; }
  void requireAll(const Statement& statement, std::size_t rows) const;
  void store(std::size_t cell, std::string_view text, bool ascii);
  Prepared& prepared(std::size_t rows);
  void insertPiece(std::size_t first, std::size_t rows);
  void bindAll(Prepared& insertion, std::size_t firstCell);
  bool bind(Prepared& insertion, std::size_t parameter, std::size_t cell);

  const Connection& connection_;
  std::string table_;
  std::vector<std::string> columns_;
  std::size_t capacity_;
  std::optional<std::string> nullText_;

  std::vector<char> cells_;
  std::vector<char> wide_;       // by cell: it uses UTF-16
  std::vector<SQLLEN> lengths_;  // by cell: bytes of its value; SQL_NULL_DATA for null
  std::map<std::size_t, std::string> longValues_;  // by cell: bytes of a value that is longer
  std::uint64_t version_ = 1;                      // grows when a value may have moved
  std::vector<std::uint64_t> numbers_;             // of the collected rows
  std::size_t bytes_ = 0;                          // of the collected rows, as they came
  std::map<std::size_t, std::unique_ptr<Prepared>> statements_;  // by the number of rows
};

}  // namespace tallow::load
