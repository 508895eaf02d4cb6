// How a bad row is found among the rows of a statement.
#include "load/job/bad_rows.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

namespace tallow::load {
namespace {

const Diagnostic kReason{"23505", 0, "duplicate"};

// The rejected rows and the number of refusals of a load of rows 1 to `last`, in statements of at
// most `batch`, with the given bad rows. After each refusal it goes back to row 1.
struct Outcome {
  std::vector<std::uint64_t> rejected;
  int refusals = 0;
};

Outcome load(std::uint64_t last, std::size_t batch, const std::set<std::uint64_t>& bad) {
  BadRowSearch search;
  Outcome outcome;
  const auto refuses = [&](const std::vector<std::uint64_t>& rows) {
    return std::ranges::any_of(rows, [&](std::uint64_t row) { return bad.contains(row); });
  };
  while (true) {
    outcome.rejected.clear();
    std::vector<std::uint64_t> rows;
    bool refused = false;
    const auto insert = [&] {
      if (!rows.empty() && refuses(rows)) {
        search.refused(rows, kReason);
        ++outcome.refusals;
        refused = true;
      }
      rows.clear();
    };
    for (std::uint64_t row = 1; row <= last && !refused; ++row) {
      if (search.beginsStatement(row)) insert();
      if (refused) break;
      if (search.reasonAgainst(row) != nullptr) {
        outcome.rejected.push_back(row);
        continue;
      }
      rows.push_back(row);
      if (rows.size() == batch) insert();
    }
    if (!refused) insert();
    if (!refused) return outcome;
    if (outcome.refusals > 1000) return outcome;
  }
}

TEST(BadRow, IsFoundWhereverItIs) {
  for (std::uint64_t bad = 1; bad <= 20; ++bad) {
    EXPECT_EQ(load(20, 8, {bad}).rejected, std::vector<std::uint64_t>{bad});
  }
}

TEST(BadRow, IsFoundInHalves) {
  EXPECT_LE(load(64, 64, {37}).refusals, 7);
}

TEST(BadRow, LeavesItsNeighboursAlone) {
  EXPECT_EQ(load(20, 8, {1, 2, 9, 10, 20}).rejected, (std::vector<std::uint64_t>{1, 2, 9, 10, 20}));
}

TEST(BadRow, MayBeAWholeBatchOfThem) {
  const std::vector<std::uint64_t> all = {9, 10, 11, 12, 13, 14, 15, 16};
  const Outcome outcome = load(24, 8, {all.begin(), all.end()});
  EXPECT_EQ(outcome.rejected, all);
  EXPECT_LE(outcome.refusals, 15);
}

TEST(BadRow, IsForgottenAfterTheCommit) {
  BadRowSearch search;
  search.refused(std::vector<std::uint64_t>{3}, kReason);
  ASSERT_NE(search.reasonAgainst(3), nullptr);
  EXPECT_EQ(search.reasonAgainst(3)->state, "23505");
  search.clear();
  EXPECT_EQ(search.reasonAgainst(3), nullptr);
}

}  // namespace
}  // namespace tallow::load
