#include "load/bad_row_search.hpp"

namespace tallow::load {

void BadRowSearch::refused(std::span<const std::uint64_t> rows, const Diagnostic& reason) {
  if (rows.size() == 1) {
    bad_.emplace(rows.front(), reason);
    return;
  }
  boundaries_.insert({rows.front(), rows[rows.size() / 2], rows.back() + 1});
}

const Diagnostic* BadRowSearch::reasonAgainst(std::uint64_t row) const {
  const auto found = bad_.find(row);
  return found == bad_.end() ? nullptr : &found->second;
}

void BadRowSearch::clear() {
  boundaries_.clear();
  bad_.clear();
}

}  // namespace tallow::load
