// Puts rows into a table of PostgreSQL and goes on past those that the server refuses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "load/target/copy_text.hpp"
#include "load/target/postgres_copy.hpp"
#include "load/target/postgres_session.hpp"

namespace tallow::load {

// Rows, as they are sent and as they came.
class RowChunk {
 public:
  explicit RowChunk(std::optional<std::string> nullText) : text_(std::move(nullText)) {}

  void add(std::uint64_t number, const Row& row);
  void clear();

  std::size_t rows() const noexcept { return rows_.size(); }
  std::string_view text() const noexcept { return text_.text(); }
  // Of the rows from `begin` up to `end`.
  std::string_view text(std::size_t begin, std::size_t end) const;
  // A row without its fields.
  Row row(std::size_t index) const;
  // As it was given to add().
  std::uint64_t number(std::size_t index) const { return rows_[index].number; }

 private:
  struct Place {
    std::size_t textEnd;
    std::size_t rawEnd;
    std::uint64_t number;
    std::uint64_t line;
    std::uint64_t offset;
  };

  std::size_t textBegin(std::size_t index) const {
    return index == 0 ? 0 : rows_[index - 1].textEnd;
  }

  CopyText text_;
  std::string raw_;
  std::vector<Place> rows_;
};

// Sends rows in chunks with a savepoint and a COPY each, so that a refusal undoes one chunk and not
// the transaction. That chunk is sent again in pieces, without the bad rows. A row is bad if the
// server refuses it alone, after all rows before it: what the server says about the place of a
// fault only decides where to cut. Rows are sent as they come. Only the first of a chunk wait for
// what the server says to the chunk before.
class CopyChunks : public RowSink {
 public:
  // The session must outlive it.
  CopyChunks(PostgresSession& session, CopyTarget target,
             const std::optional<std::string>& nullText, SetAside setAside);

  std::optional<Diagnostic> add(std::uint64_t number, const Row& row) override;
  void flush() override;
  void settle() override { flush(); }

 private:
  struct Piece {
    std::size_t begin;
    std::size_t end;

    std::size_t rows() const noexcept { return end - begin; }
  };

  void open();
  void sendNew();
  void close();
  void finishSent();
  void sendAgain(const CopyFailure& failure);
  Piece nextPiece(std::size_t begin) const;
  void learn(const Piece& piece, const CopyFailure& failure);
  void begin();
  void send(const Piece& piece);

  PostgresSession& session_;
  CopyTarget target_;
  SetAside setAside_;
  RowChunk current_;
  bool isOpen_ = false;        // its COPY has begun
  std::size_t sentBytes_ = 0;  // of it
  RowChunk sent_;              // the chunk before, if the server has not answered yet
  // What makes or renews the savepoint before the next COPY.
  const char* savepoint_;

  // While a chunk is sent again:
  std::optional<std::size_t> suspect_;  // the row that the server has named
  std::size_t most_ = 0;                // rows for the next piece
};

}  // namespace tallow::load
