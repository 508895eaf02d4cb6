// Passwords are left out of whatever the loader prints.
#include "load/secrets.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

struct Case {
  const char* connection;
  const char* shown;
};
void PrintTo(const Case& value, std::ostream* out) {
  *out << '<' << value.connection << '>';
}

class WithoutSecrets : public testing::TestWithParam<Case> {};

TEST_P(WithoutSecrets, ShowsNoPassword) {
  EXPECT_EQ(withoutSecrets(GetParam().connection), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Secrets, WithoutSecrets,
    testing::Values(
        Case{"", ""}, Case{"DSN=shop;Uid=loader", "DSN=shop;Uid=loader"},
        Case{"Uid=a;PWD=geheim;Server=b", "Uid=a;PWD=***;Server=b"},
        Case{"Uid=a;Pwd=geheim", "Uid=a;Pwd=***"}, Case{"pwd = geheim ;Uid=a", "pwd = ***;Uid=a"},
        Case{"Password=x y z;Uid=a", "Password=***;Uid=a"},
        Case{"PASSWORD=a=b;Uid=a", "PASSWORD=***;Uid=a"},
        Case{"Driver={PostgreSQL Unicode};Pwd={a;b}}c};Uid=a",
             "Driver={PostgreSQL Unicode};Pwd=***;Uid=a"},
        Case{"Pwd={never closed;Uid=a", "Pwd=***"}, Case{"Pwd=\"a;b\";Uid=a", "Pwd=***;Uid=a"},
        Case{"Pwd='a;b';Uid=a", "Pwd=***;Uid=a"}, Case{"Pwd=;Uid=a", "Pwd=;Uid=a"},
        Case{"Pwd=one;SSLPassword=two;AccessToken=three",
             "Pwd=***;SSLPassword=***;AccessToken=***"},
        Case{"Client_Secret=x;Passphrase=y;Pass=z;Bypass=no",
             "Client_Secret=***;Passphrase=***;Pass=***;Bypass=no"},
        Case{"postgresql://loader:geheim@db:5432/shop", "postgresql://loader:***@db:5432/shop"},
        Case{"postgresql://loader:a@b:c@db/shop", "postgresql://loader:***@db/shop"},
        Case{"postgresql://loader@db/shop", "postgresql://loader@db/shop"},
        Case{"postgresql://db:5432/shop", "postgresql://db:5432/shop"},
        Case{"postgresql://db/shop?user=a&password=b", "postgresql://db/shop?user=a&password=***"},
        Case{"postgresql://db/shop?password=b&sslmode=require&sslpassword=c",
             "postgresql://db/shop?password=***&sslmode=require&sslpassword=***"},
        Case{"postgresql://db:5432/shop?user=a&password=x@y&sslmode=require",
             "postgresql://db:***&sslmode=require"},
        Case{"--to=postgresql://db/x?password=a&user=b",
             "--to=postgresql://db/x?password=***&user=b"},
        Case{"Server=tcp://db;Pwd=a&b;Uid=c", "Server=tcp://db;Pwd=***;Uid=c"},
        Case{"postgres://a:b;c@db/shop", "postgres://a:***@db/shop"},
        Case{"sqlite://C:/data/orders.db", "sqlite://C:/data/orders.db"}));

TEST(SecretMask, TakesThePasswordOutOfADriversText) {
  const SecretMask mask("Uid=loader;Pwd=geheim");
  EXPECT_EQ(mask("login of loader with geheim failed"), "login of loader with *** failed");
  EXPECT_EQ(mask("nothing to hide"), "nothing to hide");
}

TEST(SecretMask, KnowsWhatBracesAndCodesStandFor) {
  EXPECT_EQ(SecretMask("Pwd={a;b}}c}")("tried 'a;b}c' and {a;b}}c}"), "tried '***' and ***");
  EXPECT_EQ(SecretMask("postgresql://u:ge%68eim@db")("not geheim, not ge%68eim"),
            "not ***, not ***");
}

TEST(SecretMask, KnowsAPasswordInTheQueryOfAnAddress) {
  EXPECT_EQ(SecretMask("postgresql://db/x?password=geheim&sslmode=require")("not geheim"),
            "not ***");
}

TEST(SecretMask, KnowsThePartsThatAnAddressIsCutInto) {
  EXPECT_EQ(SecretMask("postgresql://u:ge@heim@db/x")("no host \"heim@db\""), "no host \"***@db\"");
  EXPECT_EQ(SecretMask("postgresql://u:geh/eim@db/x")("no port \"geh\""), "no port \"***\"");
}

TEST(SecretMask, MasksWhatAKeyNamesWhoseverItIs) {
  const SecretMask mask("DSN=shop");
  EXPECT_EQ(mask("cannot connect (UID=a;PWD=other) to it"), "cannot connect (UID=a;PWD=***) to it");
  EXPECT_EQ(mask("the string \"Pwd={x;y};Uid=a\" is wrong"),
            "the string \"Pwd=***;Uid=a\" is wrong");
  EXPECT_EQ(mask("password authentication failed for user \"a\""),
            "password authentication failed for user \"a\"");
}

TEST(SecretMask, LeavesWordsAloneThatAShortPasswordIsPartOf) {
  EXPECT_EQ(SecretMask("Pwd=ab")("a table; PWD=ab"), "a table; PWD=***");
}

}  // namespace
}  // namespace tallow::load
