// What the loader reads in an ODBC connection string, and what it adds to one.
#include "load/target/connection_string.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

std::string spelt(std::string_view text) {
  std::string result;
  for (const ConnectionAttribute& attribute : connectionAttributes(text)) {
    result += attribute.key + "<" + attribute.value + ">";
  }
  return result;
}

TEST(ConnectionString, IsCutIntoAttributes) {
  EXPECT_EQ(spelt("Driver={A b};Server=x; Uid = me ;"), "DRIVER<A b>SERVER<x>UID<me>");
  EXPECT_EQ(spelt("a={x;y=}};z};b=1"), "A<x;y=};z>B<1>");
  EXPECT_EQ(spelt("a=1;nonsense;b=2"), "A<1>B<2>");
  EXPECT_EQ(spelt("nonsense"), "");
  EXPECT_EQ(spelt("a="), "A<>");
  EXPECT_EQ(spelt("a={open"), "A<open>");
  EXPECT_EQ(spelt(""), "");
}

TEST(ConnectionString, AsksToReconnectInAnySpelling) {
  for (const char* text :
       {"Driver=x;AUTO_RECONNECT=1", "auto_reconnect = yes", "AutoReconnect=1",
        "Auto_Reconnect={1}", "OPTION=4194304", "option=4194307;a=b", "Options=0x400000"}) {
    EXPECT_TRUE(asksToReconnect(text)) << text;
  }
  for (const char* text : {"Driver=x", "AUTO_RECONNECT=0", "auto_reconnect=no", "OPTION=3",
                           "Password={;AUTO_RECONNECT=1}", "Database=AUTO_RECONNECT"}) {
    EXPECT_FALSE(asksToReconnect(text)) << text;
  }
}

TEST(ConnectionString, NamesSqlite) {
  EXPECT_TRUE(namesSqlite("driver={SQLite3 ODBC Driver};Database=a"));
  EXPECT_FALSE(namesSqlite("driver={PostgreSQL};Database=sqlite"));
}

TEST(ConnectionString, AsksForNoTransactions) {
  EXPECT_TRUE(asksForNoTransactions("Driver=SQLite3;NoTXN=1"));
  EXPECT_FALSE(asksForNoTransactions("Driver=SQLite3;NoTXN=0"));
  EXPECT_FALSE(asksForNoTransactions("Driver=SQLite3"));
}

TEST(ConnectionString, GetsALimitForLocksOfSqlite) {
  constexpr std::chrono::milliseconds kLimit{2000};
  EXPECT_EQ(withLockLimit("Driver=SQLite3;a=b", kLimit), "Timeout=2000;Driver=SQLite3;a=b");
  EXPECT_EQ(withLockLimit("Driver=SQLite3;timeout=9", kLimit),
            "Timeout=9;Driver=SQLite3;timeout=9");
  EXPECT_EQ(withLockLimit("Driver=SQLite3;Timeout=9000", kLimit),
            "Timeout=2000;Driver=SQLite3;Timeout=9000");
  EXPECT_EQ(withLockLimit("Driver=Another;a=b", kLimit), "Driver=Another;a=b");
}

}  // namespace
}  // namespace tallow::load
