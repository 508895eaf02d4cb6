#include "load/job_record.hpp"

#include <gtest/gtest.h>

namespace tallow::load {
namespace {

TEST(Hex, KeepsEveryByte) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  EXPECT_EQ(fromHex(toHex(bytes)), bytes);
}

TEST(Hex, WritesTwoDigitsAByte) {
  EXPECT_EQ(toHex("\x0A\xFF"), "0aff");
}

TEST(Hex, RefusesWhatIsNone) {
  EXPECT_FALSE(fromHex("0").has_value());
  EXPECT_FALSE(fromHex("0g").has_value());
}

TEST(Columns, ComeBackAsTheyWere) {
  const std::vector<std::string> columns = {"a", "b,c", "d\"e", "\xC3\xA9", ""};
  EXPECT_EQ(splitColumns(joinColumns(columns)), columns);
  EXPECT_EQ(splitColumns(joinColumns({})), std::vector<std::string>{});
}

TEST(Columns, RefuseWhatIsNoList) {
  EXPECT_FALSE(splitColumns("").has_value());
  EXPECT_FALSE(splitColumns("[1]").has_value());
}

TEST(HeaderName, ComesBackAsItWas) {
  for (const Header header : {Header::kNone, Header::kDue, Header::kRead}) {
    EXPECT_EQ(headerFromName(headerName(header)), header);
  }
  EXPECT_FALSE(headerFromName("").has_value());
}

TEST(Settings, NameWhatDiffers) {
  const JobSettings before{"p", "t", ',', std::nullopt, ""};
  JobSettings now = before;
  EXPECT_EQ(differenceOf(before, now), "");
  now.table = "u";
  EXPECT_EQ(differenceOf(before, now), "the table was \"t\" and is now \"u\"");
}

TEST(Settings, TellNoNullTextFromAnEmptyOne) {
  const JobSettings before{"p", "t", ',', std::nullopt, ""};
  JobSettings now = before;
  now.nullText = "";
  EXPECT_EQ(differenceOf(before, now), "--null was not given and is now \"\"");
}

}  // namespace
}  // namespace tallow::load
