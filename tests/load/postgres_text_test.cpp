// Addresses, statements and failure texts of PostgreSQL.
#include "load/target/postgres_text.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

TEST(PostgresText, KnowsTheAddressesOfLibpq) {
  EXPECT_TRUE(namesPostgres("postgresql://localhost/shop"));
  EXPECT_TRUE(namesPostgres("postgres://"));
  EXPECT_FALSE(namesPostgres("Driver={PostgreSQL Unicode};Server=x"));
  EXPECT_FALSE(namesPostgres("postgresql:x"));
}

TEST(PostgresText, NumbersParameters) {
  EXPECT_EQ(numberedParameters("UPDATE t SET a = ?, b = ? WHERE c = ?"),
            "UPDATE t SET a = $1, b = $2 WHERE c = $3");
}

TEST(PostgresText, LeavesWhatIsInQuotes) {
  EXPECT_EQ(numberedParameters("SELECT \"a?\"\"?\", '?''?' FROM t WHERE x = ?"),
            "SELECT \"a?\"\"?\", '?''?' FROM t WHERE x = $1");
}

struct Context {
  const char* text;
  std::optional<std::uint64_t> row;
};

TEST(PostgresText, FindsTheRowInEveryLanguage) {
  const Context kContexts[] = {
      {"COPY t1, line 17, column a: \"x9\"", 17},
      {"COPY t1, line 4", 4},
      {"COPY t1, Zeile 17, Spalte a: \u00bbx9\u00ab", 17},
      {"COPY t1, l\u00ednea 17, columna a: \u00abx\u00bb", 17},
      {"COPY t1, ligne 17, colonne a : \u00ab x \u00bb", 17},
      {"COPY t1, riga 17, colonna a: \"x\"", 17},
      {"t1\u306eCOPY\u3001\u884c 17\u3001\u5217 a: \"x\"", 17},
      {"t1 \ubcf5\uc0ac, 17\ubc88\uc9f8 \uc904, a \uc5f4: \"x\"", 17},
      {"COPY t1, \u0441\u0442\u0440\u043e\u043a\u0430 17, "
       "\u0441\u0442\u043e\u043b\u0431\u0435\u0446 a: \"x\"",
       17},
      {"COPY t1, \u10ee\u10d0\u10d6\u10d8 17", 17},
  };
  for (const Context& context : kContexts) {
    EXPECT_EQ(rowOfCopy(context.text, "t1"), context.row) << context.text;
  }
}

TEST(PostgresText, FindsTheRowBelowOtherPlaces) {
  EXPECT_EQ(rowOfCopy("PL/pgSQL function t1() line 3 at RAISE\nCOPY t1, line 5", "t1"), 5);
}

TEST(PostgresText, ReadsNoRowIntoOtherWords) {
  for (const char* text :
       {"", "SQL statement \"INSERT INTO t1 VALUES (3)\"", "COPY t2, line 5", "COPY t1",
        "COPY t12, line 5", "COPY t1, line 0", "COPY t1, line 99999999999999999999999"}) {
    EXPECT_EQ(rowOfCopy(text, "t1"), std::nullopt) << text;
  }
}

TEST(PostgresText, TrustsNoValueThatLooksLikeAPlace) {
  EXPECT_EQ(rowOfCopy("COPY t, line 5, column a: \"x\nCOPY t, line 2\"", "t"), std::nullopt);
}

TEST(PostgresText, SpellsTheTableAsTheServerDoes) {
  EXPECT_EQ(nameInContext("Orders"), "orders");
  EXPECT_EQ(nameInContext("sales.\"Big Orders\""), "Big Orders");
}

TEST(PostgresText, KnowsMistakesInTheAddress) {
  EXPECT_TRUE(isWrongSetting("invalid sslmode value: \"x\""));
  EXPECT_TRUE(
      isWrongSetting("sslmode value \"require\" invalid when SSL support is not compiled in"));
  EXPECT_TRUE(isWrongSetting("definition of service \"x\" not found"));
  EXPECT_TRUE(isWrongSetting("could not match 2 port numbers to 3 hosts"));
  EXPECT_FALSE(isWrongSetting("connection to server at \"x\", port 1 failed: Connection refused"));
  EXPECT_FALSE(isWrongSetting("received invalid response to SSL negotiation: x"));
}

TEST(PostgresText, MakesOneLineOfMany) {
  EXPECT_EQ(oneLine("a\n\tb\r\nc\n"), "a  b  c");
}

}  // namespace
}  // namespace tallow::load
