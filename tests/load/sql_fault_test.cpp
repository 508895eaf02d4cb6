#include "load/sql_fault.hpp"

#include <gtest/gtest.h>

#include "load/reject_reason.hpp"

namespace tallow::load {
namespace {

Fault standard(const std::string& state, Step step = Step::kInsert) {
  return classify({state, 0, ""}, Dialect::kStandard, step);
}

Fault sqlite(int native, Step step = Step::kInsert) {
  return classify({"HY000", native, ""}, Dialect::kSqlite, step);
}

TEST(Fault, IsABadRowForDataAndConstraints) {
  for (const char* state : {"22001", "22P02", "22003", "23505", "23502"}) {
    EXPECT_EQ(standard(state), Fault::kBadRow) << state;
  }
}

TEST(Fault, IsNoBadRowOutsideAnInsert) {
  EXPECT_EQ(standard("23505", Step::kOther), Fault::kPermanent);
  EXPECT_EQ(sqlite(19, Step::kOther), Fault::kPermanent);
}

TEST(Fault, IsALossForConnectionRollbackAndTime) {
  for (const char* state :
       {"08S01", "08001", "40001", "40P01", "57P01", "57P03", "HYT00", "HYT01"}) {
    EXPECT_EQ(standard(state), Fault::kLost) << state;
    EXPECT_EQ(standard(state, Step::kOther), Fault::kLost) << state;
  }
}

TEST(Fault, IsPermanentForAllElse) {
  for (const char* state : {"42P01", "42601", "HY000", "28P01", "53100", ""}) {
    EXPECT_EQ(standard(state), Fault::kPermanent) << state;
  }
}

TEST(Fault, IsToldByTheNativeCodeOfSqlite) {
  for (const int native : {18, 19, 20, 2067}) EXPECT_EQ(sqlite(native), Fault::kBadRow) << native;
  for (const int native : {5, 6, 261}) EXPECT_EQ(sqlite(native), Fault::kLost) << native;
  for (const int native : {1, 10, 11, 13}) EXPECT_EQ(sqlite(native), Fault::kPermanent) << native;
}

TEST(Fault, IsDescribedInOneLine) {
  EXPECT_EQ(describe({"23505", 7, "a\nb"}), "a b (SQLSTATE 23505, native 7)");
}

Row rowOf(std::size_t fields, RowDefect defect = RowDefect::kNone) {
  Row row;
  row.fields.resize(fields);
  row.line = 3;
  row.offset = 17;
  row.defect = defect;
  return row;
}

TEST(RejectReason, IsNoneForAGoodRow) {
  EXPECT_FALSE(faultOf(rowOf(2), 2).has_value());
}

TEST(RejectReason, CountsFields) {
  EXPECT_EQ(faultOf(rowOf(1), 2)->state, "21S01");
  EXPECT_EQ(faultOf(rowOf(3), 2)->state, "21S01");
}

TEST(RejectReason, NamesTheDefect) {
  EXPECT_EQ(faultOf(rowOf(2, RowDefect::kNotUtf8), 2)->state, "22021");
  EXPECT_EQ(faultOf(rowOf(2, RowDefect::kHoldsNul), 2)->state, "22021");
  EXPECT_EQ(faultOf(rowOf(2, RowDefect::kMisplacedQuote), 2)->state, "22000");
}

TEST(RejectReason, IsOneLineOfCsv) {
  EXPECT_EQ(reasonLine(rowOf(2), {"22P02", 0, "not a \"number\""}),
            "3,17,22P02,\"not a \"\"number\"\"\"\r\n");
}

}  // namespace
}  // namespace tallow::load
