// The names and statements that the loader sends, and how many rows a statement takes.
#include "load/target/sql_text.hpp"

#include <gtest/gtest.h>

#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

TEST(Name, IsPlainWithoutSpecialCharacters) {
  EXPECT_TRUE(isPlainName("Order_2"));
  for (const char* name : {"", "2nd", "order date", "a-b", "\xC3\xA9"}) {
    EXPECT_FALSE(isPlainName(name)) << name;
  }
}

TEST(Name, DoublesQuotesInside) {
  EXPECT_EQ(quoteName("a\"b", "\""), "\"a\"\"b\"");
  EXPECT_EQ(quoteName("a\"b", "`"), "`a\"b`");
}

TEST(Name, StandsBareWithoutQuotes) {
  EXPECT_EQ(quoteName("a", " "), "a");
}

TEST(Name, MustBePlainWithoutQuotes) {
  for (const char* name : {"a b", "a; drop table b", "a\"b", ""}) {
    EXPECT_THROW(quoteName(name, " "), tools::ToolError) << name;
    EXPECT_THROW(quoteName(name, ""), tools::ToolError) << name;
  }
}

TEST(Name, CannotHoldANul) {
  EXPECT_THROW(quoteName({"a\0b", 3}, "\""), tools::ToolError);
}

TEST(Table, IsFoldedByTheDatabaseWhenPlain) {
  EXPECT_EQ(tableName("Shop.Orders", "\"", Quoting::kWhereNeeded), "Shop.Orders");
  EXPECT_EQ(tableName("shop.my orders", "\"", Quoting::kWhereNeeded), "shop.\"my orders\"");
  EXPECT_EQ(tableName("shop.orders", "\"", Quoting::kAlways), "\"shop\".\"orders\"");
}

TEST(Table, KeepsAQuotedPartExact) {
  EXPECT_EQ(tableName("\"a.b\"", "\"", Quoting::kWhereNeeded), "\"a.b\"");
  EXPECT_EQ(tableName("shop.\"Orders\"", "\"", Quoting::kWhereNeeded), "shop.\"Orders\"");
  EXPECT_EQ(tableName("\"a\"\"b\"", "\"", Quoting::kWhereNeeded), "\"a\"\"b\"");
}

TEST(Table, IsSpelledInTheDatabasesOwnQuotes) {
  EXPECT_EQ(tableName("\"a`b\".c", "`", Quoting::kWhereNeeded), "`a``b`.c");
  EXPECT_EQ(tableName("[my \"orders].`x y`", "\"", Quoting::kWhereNeeded),
            "\"my \"\"orders\".\"x y\"");
}

TEST(Table, CannotLeaveItsQuotes) {
  EXPECT_EQ(tableName("a; drop table b", "\"", Quoting::kWhereNeeded), "\"a; drop table b\"");
  for (const char* table :
       {"\"a\"; drop table b; --\"", "a\" (x); drop table b; --", "\"a", "a\"b\"", "\"a\"b", "'a'",
        "a]", "[a", "`a", "", ".", "a.", ".a", "a..b", "\"\"", "a.b.c.d.e", "a.\"b\".c\""}) {
    EXPECT_THROW(tableName(table, "\"", Quoting::kWhereNeeded), tools::MisuseError) << table;
  }
}

TEST(Insert, HasAParameterForEachValue) {
  EXPECT_EQ(insertStatement("t", {"a", "b"}, 2), "INSERT INTO t (a, b) VALUES (?,?),(?,?)");
}

TEST(Create, GivesEveryColumnTheType) {
  EXPECT_EQ(createStatement("t", {"a", "b"}, "text"), "CREATE TABLE t (a text, b text)");
}

TEST(Batch, StaysUnderTheLimitOfParameters) {
  EXPECT_EQ(defaultBatch(3), 100U);
  EXPECT_EQ(defaultBatch(30), 33U);
  EXPECT_EQ(defaultBatch(5000), 1U);
}

TEST(Batch, IsCutIntoFewSizes) {
  EXPECT_EQ(pieceOf(1), 1U);
  EXPECT_EQ(pieceOf(37), 32U);
  EXPECT_EQ(pieceOf(64), 64U);
}

}  // namespace
}  // namespace tallow::load
