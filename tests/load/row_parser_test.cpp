// CSV to rows: fields, defects and positions, however the data is cut into blocks.
#include "load/rows/row_parser.hpp"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace tallow::load {
namespace {

// A row as the tests compare it.
struct Seen {
  std::vector<std::string> fields;  // "NULL" in brackets for null
  std::string raw;
  std::uint64_t line = 0;
  std::uint64_t offset = 0;
  RowDefect defect = RowDefect::kNone;

  bool operator==(const Seen&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Seen& seen) {
  out << "line " << seen.line << " offset " << seen.offset << " defect "
      << static_cast<int>(seen.defect) << " raw '" << seen.raw << "':";
  for (const std::string& field : seen.fields) out << " <" << field << ">";
  return out;
}

Seen seen(const Row& row) {
  Seen copy{{}, std::string(row.raw), row.line, row.offset, row.defect};
  for (const Field& field : row.fields) {
    copy.fields.push_back(field.isNull ? "[NULL]" : std::string(field.text));
  }
  return copy;
}

void take(RowParser& parser, std::string_view block, std::vector<Seen>& rows) {
  Row row;
  parser.setInput(block);
  while (parser.next(row)) rows.push_back(seen(row));
}

void end(RowParser& parser, std::vector<Seen>& rows) {
  Row row;
  while (parser.finish(row)) rows.push_back(seen(row));
}

std::vector<Seen> parse(std::string_view text, std::size_t blockSize = 1 << 20,
                        bool singleColumn = false) {
  RowParser parser(',');
  parser.setSingleColumn(singleColumn);
  std::vector<Seen> rows;
  for (std::size_t at = 0; at < text.size(); at += blockSize) {
    // A copy that is freed at once: the parser must keep nothing of it.
    const std::string block(text.substr(at, blockSize));
    take(parser, block, rows);
  }
  end(parser, rows);
  return rows;
}

std::vector<std::vector<std::string>> fields(std::string_view text) {
  std::vector<std::vector<std::string>> all;
  for (const Seen& row : parse(text)) all.push_back(row.fields);
  return all;
}

using Rows = std::vector<std::vector<std::string>>;

const std::string kEverything =
    "\xEF\xBB\xBFid,name\r\n"
    "1,\"a \"\"quoted\"\" one\"\n"
    "2,\"two\r\nlines\"\r\n"
    "\n"
    "3,\n"
    "4,\"\"\r"
    "5,\xE6\xBC\xA2\xE5\xAD\x97\r\n"
    "\r\n"
    "6, blank \n"
    "7,\"a\nb\rc\"\n"
    "8,bad\"quote\n"
    "9,\"also\"bad\n"
    "10,last";

TEST(RowParser, SplitsPlainFields) {
  EXPECT_EQ(fields("a,b\nc,d\n"), (Rows{{"a", "b"}, {"c", "d"}}));
}

TEST(RowParser, UndoublesQuotes) {
  EXPECT_EQ(fields("\"a\"\"b\",\"\"\"\"\n"), (Rows{{"a\"b", "\""}}));
}

TEST(RowParser, KeepsLineBreaksInsideQuotes) {
  EXPECT_EQ(fields("\"a\r\nb\nc\rd\",x\n"), (Rows{{"a\r\nb\nc\rd", "x"}}));
}

TEST(RowParser, TakesEveryLineBreak) {
  EXPECT_EQ(fields("a\r\nb\nc\rd"), (Rows{{"a"}, {"b"}, {"c"}, {"d"}}));
}

TEST(RowParser, TakesTheLastRowWithoutLineBreak) {
  EXPECT_EQ(fields("a,b\nc,"), (Rows{{"a", "b"}, {"c", "[NULL]"}}));
}

TEST(RowParser, TellsNullFromQuotedEmptyText) {
  EXPECT_EQ(fields(",\"\",\n"), (Rows{{"[NULL]", "", "[NULL]"}}));
}

TEST(RowParser, KeepsBlanksAroundValues) {
  EXPECT_EQ(fields(" a ,\tb\t, \n"), (Rows{{" a ", "\tb\t", " "}}));
}

TEST(RowParser, SkipsTheByteOrderMarkOnlyAtTheStart) {
  EXPECT_EQ(fields("\xEF\xBB\xBF"
                   "a\n\xEF\xBB\xBF"
                   "b\n"),
            (Rows{{"a"},
                  {"\xEF\xBB\xBF"
                   "b"}}));
}

TEST(RowParser, TakesAFileThatIsOnlyAByteOrderMark) {
  EXPECT_TRUE(parse("\xEF\xBB\xBF").empty());
}

TEST(RowParser, TakesAPartOfAByteOrderMarkAsData) {
  EXPECT_EQ(parse("\xEF\xBB").at(0).defect, RowDefect::kNotUtf8);
}

TEST(RowParser, SkipsBlankLines) {
  EXPECT_EQ(fields("\n\r\na,b\n\nc,d\n\r"), (Rows{{"a", "b"}, {"c", "d"}}));
}

TEST(RowParser, TakesABlankLineOfOneColumnAsNull) {
  const std::vector<Seen> rows = parse("a\n\n\r\nb\n", 1 << 20, true);
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[1].fields, std::vector<std::string>{"[NULL]"});
  EXPECT_EQ(rows[2].raw, "\r\n");
}

TEST(RowParser, TakesNoRowFromNothing) {
  EXPECT_TRUE(parse("").empty());
}

TEST(RowParser, SaysWhereARowBegins) {
  const std::vector<Seen> rows = parse("a\n\"b\nb\"\r\nc\n");
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(rows[1].line, 2U);
  EXPECT_EQ(rows[1].offset, 2U);
  EXPECT_EQ(rows[2].line, 4U);
  EXPECT_EQ(rows[2].offset, 9U);
}

TEST(RowParser, GivesTheRowAsItCame) {
  const std::vector<Seen> rows = parse("a,\"b\"\"\"\r\nlast");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].raw, "a,\"b\"\"\"\r\n");
  EXPECT_EQ(rows[1].raw, "last");
}

TEST(RowParser, FindsAQuoteInsideAnUnquotedValue) {
  const std::vector<Seen> rows = parse("a,b\"c,d\nnext,row\n");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].defect, RowDefect::kMisplacedQuote);
  EXPECT_EQ(rows[0].raw, "a,b\"c,d\n");
  EXPECT_EQ(rows[1].fields, (std::vector<std::string>{"next", "row"}));
}

TEST(RowParser, FindsTextBehindAClosingQuote) {
  const std::vector<Seen> rows = parse("\"a\"b\nnext\n");
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].defect, RowDefect::kMisplacedQuote);
  EXPECT_EQ(rows[1].defect, RowDefect::kNone);
}

TEST(RowParser, FindsWhatIsNotUtf8) {
  EXPECT_EQ(parse("a,\xC3\n").at(0).defect, RowDefect::kNotUtf8);
}

TEST(RowParser, FindsANulByte) {
  EXPECT_EQ(parse(std::string_view("a\0b\n", 4)).at(0).defect, RowDefect::kHoldsNul);
}

TEST(RowParser, NamesTheLineWhereAnOpenQuoteBegan) {
  RowParser parser(',');
  std::vector<Seen> rows;
  take(parser, "a,b\n\"x\ny\",\"open\nfor ever\n", rows);
  Row row;
  try {
    parser.finish(row);
    FAIL() << "the quote was taken as closed";
  } catch (const UnreadableData& error) {
    EXPECT_NE(std::string(error.what()).find("line 3"), std::string::npos) << error.what();
  }
}

TEST(RowParser, RefusesARowAboveTheLimit) {
  RowParser parser(',');
  std::vector<Seen> rows;
  take(parser, "short\n\"", rows);
  const std::string block(std::size_t{8} << 20, 'x');
  try {
    for (int i = 0; i < 9; ++i) take(parser, block, rows);
    FAIL() << "the row was accepted";
  } catch (const UnreadableData& error) {
    EXPECT_NE(std::string(error.what()).find("line 2"), std::string::npos) << error.what();
  }
}

TEST(RowParser, TakesALongRowInOnePiece) {
  const std::string value(std::size_t{5} << 20, 'v');
  const std::vector<Seen> rows = parse("a," + value + "\nb,c\n", 65536);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0].fields[1], value);
  EXPECT_EQ(rows[1].fields[1], "c");
}

TEST(RowParser, GivesTheSameRowsAtEveryBlockSize) {
  const std::vector<Seen> whole = parse(kEverything);
  EXPECT_EQ(whole.size(), 11U);
  for (std::size_t size = 1; size <= kEverything.size(); ++size) {
    EXPECT_EQ(parse(kEverything, size), whole) << "blocks of " << size << " bytes";
  }
}

TEST(RowParser, GoesOnFromEveryCheckpoint) {
  const std::vector<Seen> whole = parse(kEverything);
  for (std::size_t cut = 0; cut <= kEverything.size(); ++cut) {
    std::vector<Seen> rows;
    RowParser first(',');
    take(first, std::string_view(kEverything).substr(0, cut), rows);
    RowParser second(',');
    second.restore(first.unfinished(), first.lines(), first.bytes());
    EXPECT_EQ(second.bytes(), cut);
    EXPECT_EQ(second.unfinished(), first.unfinished());
    EXPECT_EQ(second.lines(), first.lines());
    take(second, std::string_view(kEverything).substr(cut), rows);
    end(second, rows);
    EXPECT_EQ(rows, whole) << "cut behind byte " << cut;
  }
}

// Rows that are written by the rules must come back unchanged, however they are cut into blocks.
TEST(RowParser, ReadsBackRandomRows) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const auto below = [&](std::size_t limit) { return std::size_t{random()} % limit; };
  constexpr std::string_view kLetters = "ab,\"\r\n \t;";
  for (int round = 0; round < 200; ++round) {
    Rows wanted;
    std::string text;
    for (std::size_t row = below(6) + 1; row > 0; --row) {
      std::vector<std::string> values;
      std::string line;
      for (int column = 0; column < 3; ++column) {
        std::string value;
        for (std::size_t i = below(6); i > 0; --i) value += kLetters[below(kLetters.size())];
        std::string doubled;
        for (const char c : value) doubled += c == '"' ? std::string("\"\"") : std::string(1, c);
        line += (column > 0 ? ",\"" : "\"") + doubled + "\"";
        values.push_back(value);
      }
      wanted.push_back(values);
      text += line + (below(2) == 0 ? "\n" : "\r\n");
    }
    Rows got;
    for (const Seen& row : parse(text, below(9) + 1)) got.push_back(row.fields);
    ASSERT_EQ(got, wanted) << text;
  }
}

TEST(OpenQuote, SkipsClosedOnes) {
  EXPECT_EQ(linesBeforeOpenQuote("\"a\n\",\"b\"\"\n\"\"\n", ','), 1U);
}

TEST(Fields, AreKeptUpToABound) {
  RowParser parser(',');
  const std::string text = std::string(200'000, ',') + "\nlast,row\n";
  parser.setInput(text);
  Row row;
  ASSERT_TRUE(parser.next(row));
  EXPECT_EQ(row.fields.size(), kMostFields + 1);
  EXPECT_EQ(row.raw.size(), 200'001U);
  ASSERT_TRUE(parser.next(row));
  EXPECT_EQ(row.fields.size(), 2U);
}

}  // namespace
}  // namespace tallow::load
