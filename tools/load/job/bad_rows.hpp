// Which rows are bad, and why.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "load/rows/row_parser.hpp"
#include "load/target/fault.hpp"

namespace tallow::load {

// The fault of a row that the parser finds bad or that does not have `columns` fields. None if the
// row is good.
std::optional<Diagnostic> faultOf(const Row& row, std::size_t columns);

// The line of the reasons file.
std::string reasonLine(const Row& row, const Diagnostic& reason);

// Finds the bad row of a refused statement.
//
// A refused statement is undone together with its transaction. The rows since the checkpoint come
// again and are inserted in smaller statements around the bad row: in halves, until a statement of
// one row is refused. Rows are numbered from the start of the job. What is known about them is kept
// until the next commit.
class BadRowSearch {
 public:
  // A statement of these rows was refused.
  void refused(std::span<const std::uint64_t> rows, const Diagnostic& reason);

  // Whether a statement must end before this row.
  bool beginsStatement(std::uint64_t row) const { return boundaries_.contains(row); }
  // Why the row is bad. Null if nothing is known against it.
  const Diagnostic* reasonAgainst(std::uint64_t row) const;

  void clear();

 private:
  std::set<std::uint64_t> boundaries_;
  std::map<std::uint64_t, Diagnostic> bad_;
};

}  // namespace tallow::load
