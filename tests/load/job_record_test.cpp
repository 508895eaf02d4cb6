// How the row of a job stores its values, and which settings a restart may change.
#include "load/job/job_record.hpp"

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
  const JobSettings before{"p", "t", ',', std::nullopt, "", ""};
  JobSettings now = before;
  EXPECT_EQ(differenceOf(before, now), "");
  now.table = "u";
  EXPECT_EQ(differenceOf(before, now), "the table was \"t\" and is now \"u\"");
}

TEST(Settings, MayBeLoggedInAnotherWay) {
  const JobSettings before{"p", "t", ',', std::nullopt, "Log_level=4 Block_size=512", "old.csv"};
  JobSettings now = before;
  now.init = "Block_size=\"512\" Log_level=6 Log_directory=logs";
  now.rejectsFile = "new.csv";
  EXPECT_EQ(differenceOf(before, now), "");
}

TEST(Settings, MustCutAndCompareTheDataAlike) {
  const JobSettings before{"p", "t", ',', std::nullopt, "Block_size=512", ""};
  JobSettings now = before;
  now.init = "Block_size=1024";
  EXPECT_EQ(differenceOf(before, now), "the Block_size was \"512\" and is now \"1024\"");
  now.init = "Block_size=512 Signature_check=0";
  EXPECT_EQ(differenceOf(before, now), "the Signature_check was \"2\" and is now \"0\"");
  now.init = "Block_size=512 Fallback_Directory=x";
  EXPECT_NE(differenceOf(before, now), "");
  now.init = "Block_size=512 Fallback_file=x";
  EXPECT_NE(differenceOf(before, now), "");
}

TEST(Settings, TellNoNullTextFromAnEmptyOne) {
  const JobSettings before{"p", "t", ',', std::nullopt, "", ""};
  JobSettings now = before;
  now.nullText = "";
  EXPECT_EQ(differenceOf(before, now), "--null was not given and is now \"\"");
}

}  // namespace
}  // namespace tallow::load
