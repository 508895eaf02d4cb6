// Finds the bad row of a refused statement.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>

#include "load/sql_fault.hpp"

namespace tallow::load {

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

  bool empty() const noexcept { return boundaries_.empty() && bad_.empty(); }
  void clear();

 private:
  std::set<std::uint64_t> boundaries_;
  std::map<std::uint64_t, Diagnostic> bad_;
};

}  // namespace tallow::load
