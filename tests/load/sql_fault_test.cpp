// What a database's failure means for the load, and what is printed about it.
#include "load/target/fault.hpp"

#include <gtest/gtest.h>

#include "load/job/bad_rows.hpp"

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

Fault mariadb(int native, const std::string& state = "HY000", Step step = Step::kInsert) {
  return classify({state, native, ""}, Dialect::kMariadb, step);
}

TEST(Fault, IsToldByTheNativeCodeOfMariadb) {
  for (const int native : {2002, 2006, 2013, 1047, 1180, 1205, 1213, 1290, 1317, 1836, 1927}) {
    EXPECT_EQ(mariadb(native), Fault::kLost) << native;
  }
  EXPECT_EQ(mariadb(1317, "70100"), Fault::kLost);
  for (const int native : {1264, 1265, 1292, 1366, 1406}) {
    EXPECT_EQ(mariadb(native, "01000"), Fault::kBadRow) << native;
    EXPECT_EQ(mariadb(native, "01000", Step::kOther), Fault::kPermanent) << native;
  }
  for (const int native : {1021, 1114, 1146}) {
    EXPECT_EQ(mariadb(native), Fault::kPermanent) << native;
  }
}

TEST(Fault, PassesOnAServerThatIsReadOnlyOrLockedOrFull) {
  for (const char* state : {"25006", "55P03", "53300"}) {
    EXPECT_EQ(standard(state), Fault::kLost) << state;
  }
  for (const char* state : {"40002", "57P04", "53100"}) {
    EXPECT_EQ(standard(state, Step::kOther), Fault::kPermanent) << state;
  }
}

Fault connecting(const std::string& state, int native = 0, const std::string& text = {}) {
  return classify({state, native, text}, Dialect::kStandard, Step::kConnect);
}

TEST(Fault, PassesWhenAConnectionCannotBeMade) {
  EXPECT_EQ(connecting("HY000", 2002), Fault::kLost);
  EXPECT_EQ(connecting("08001"), Fault::kLost);
  EXPECT_EQ(connecting("XX000"), Fault::kLost);
}

TEST(Fault, IsPermanentForARefusedLoginOrAMissingDriver) {
  EXPECT_EQ(connecting("28000", 1045), Fault::kPermanent);
  EXPECT_EQ(connecting("HY000", 1044), Fault::kPermanent);
  EXPECT_EQ(connecting("HY000", 14, "[SQLite]connect failed"), Fault::kPermanent);
  EXPECT_EQ(connecting("IM002"), Fault::kPermanent);
  EXPECT_EQ(connecting("IM003"), Fault::kPermanent);
  EXPECT_EQ(connecting(""), Fault::kPermanent);
  EXPECT_EQ(connecting("08001", 101, "FATAL: password authentication failed for user \"x\""),
            Fault::kPermanent);
}

TEST(Fault, IsALockOfAnother) {
  EXPECT_TRUE(isLockedByAnother({"HY000", 5, ""}, Dialect::kSqlite));
  EXPECT_TRUE(isLockedByAnother({"HY000", 1205, ""}, Dialect::kMariadb));
  EXPECT_TRUE(isLockedByAnother({"55P03", 1, ""}, Dialect::kPostgres));
  EXPECT_FALSE(isLockedByAnother({"08S01", 0, ""}, Dialect::kStandard));
}

TEST(Fault, TellsAnAlteredValue) {
  EXPECT_TRUE(altersValue({"01000", 1265, ""}, Dialect::kMariadb));
  EXPECT_TRUE(altersValue({"01004", 0, ""}, Dialect::kStandard));
  EXPECT_FALSE(altersValue({"01000", 0, "a notice"}, Dialect::kPostgres));
}

TEST(Dialect, IsToldByTheProduct) {
  EXPECT_EQ(dialectOf("SQLite"), Dialect::kSqlite);
  EXPECT_EQ(dialectOf("MariaDB"), Dialect::kMariadb);
  EXPECT_EQ(dialectOf("MySQL"), Dialect::kMariadb);
  EXPECT_EQ(dialectOf("PostgreSQL"), Dialect::kPostgres);
  EXPECT_EQ(dialectOf("Another"), Dialect::kStandard);
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
