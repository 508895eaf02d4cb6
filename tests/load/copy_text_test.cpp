// Rows in the text format of COPY, read back by a reader of the tests' own.
#include "load/target/copy_text.hpp"

#include <gtest/gtest.h>

#include <random>

#include "copy_text_reader.hpp"

namespace tallow::load {
namespace {

Row rowOf(const CopiedRow& values) {
  Row row;
  for (const auto& value : values) {
    row.fields.push_back(value ? Field{*value, false} : Field{{}, true});
  }
  return row;
}

std::string written(const std::vector<CopiedRow>& rows, std::optional<std::string> nullText = {}) {
  CopyText text(std::move(nullText));
  for (const CopiedRow& row : rows) text.add(rowOf(row));
  return std::string(text.text());
}

TEST(CopyText, WritesARowPerLine) {
  EXPECT_EQ(written({{"1", "two"}, {"3", ""}}), "1\ttwo\n3\t\n");
}

TEST(CopyText, TellsNullFromEmpty) {
  EXPECT_EQ(written({{std::nullopt, "", std::nullopt}}), "\\N\t\t\\N\n");
}

TEST(CopyText, WritesTheNullTextAsNull) {
  EXPECT_EQ(written({{"nil", "nill", "", "ni"}}, "nil"), "\\N\tnill\t\tni\n");
  EXPECT_EQ(written({{"", "x"}}, ""), "\\N\tx\n");
}

TEST(CopyText, MarksWhatHasAMeaning) {
  EXPECT_EQ(written({{"a\tb", "c\nd", "e\rf", "g\\h"}}), "a\\tb\tc\\nd\te\\rf\tg\\\\h\n");
}

TEST(CopyText, MarksTextsThatLookLikeCommands) {
  EXPECT_EQ(written({{"\\N"}, {"\\."}, {"\\"}}), "\\\\N\n\\\\.\n\\\\\n");
}

TEST(CopyText, KeepsEveryByteAtEveryPlace) {
  for (const std::size_t length : {1U, 2U, 3U, 5U, 8U, 15U, 16U, 17U, 31U, 32U, 33U, 70U}) {
    for (std::size_t place = 0; place < length; ++place) {
      for (int byte = 1; byte < 256; ++byte) {
        std::string value(length, 'x');
        value[place] = static_cast<char>(byte);
        const std::vector<CopiedRow> rows = {{"before", value, "behind"}};
        ASSERT_EQ(readCopyText(written(rows)), rows) << length << ' ' << place << ' ' << byte;
      }
    }
  }
}

TEST(CopyText, LeavesEverythingElseAsItIs) {
  for (int byte = 1; byte < 256; ++byte) {
    const std::string value(1, static_cast<char>(byte));
    const bool isSpecial = value.find_first_of("\\\t\n\r") != std::string::npos;
    EXPECT_EQ(written({{value}}).size(), isSpecial ? 3U : 2U) << byte;
  }
}

TEST(CopyText, KeepsRandomRows) {
  std::mt19937 chance(4711);
  const std::string_view bytes = "\\\t\n\rNtnr.\x01\x80\xff ab";
  std::vector<CopiedRow> rows(2000);
  for (CopiedRow& row : rows) {
    row.resize(1 + chance() % 5);
    for (auto& value : row) {
      if (chance() % 8 == 0) continue;
      value.emplace(chance() % 40, '\0');
      for (char& c : *value) c = bytes[chance() % bytes.size()];
    }
  }
  EXPECT_EQ(readCopyText(written(rows)), rows);
}

TEST(CopyText, StartsAgainEmpty) {
  CopyText text(std::nullopt);
  text.add(rowOf({"1"}));
  text.clear();
  EXPECT_EQ(text.text(), "");
  text.add(rowOf({std::string(100000, '\n')}));
  EXPECT_EQ(text.text().size(), 200001U);
}

}  // namespace
}  // namespace tallow::load
