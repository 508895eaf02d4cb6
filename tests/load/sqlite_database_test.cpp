// The way into an SQLite file, with real files.
#include "load/target/sqlite_database.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "common/tool_error.hpp"
#include "load/target/sqlite_fault.hpp"

namespace tallow::load {
namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Texts = std::vector<std::optional<std::string>>;

class SqliteDatabaseTest : public testing::Test {
 protected:
  SqliteDatabaseTest() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directory(folder_);
    database_ = open();
  }

  static std::unique_ptr<Database> open(const std::string& file = kFile) {
    return openSqlite(file, milliseconds(0));
  }

  void run(const std::string& sql) {
    database_->execute(sql);
    database_->commit();
  }

  // A table with these columns, and a sink for all of them.
  std::unique_ptr<RowSink> sinkFor(const std::string& definition,
                                   std::optional<std::string> nullText = std::nullopt) {
    run("CREATE TABLE t " + definition);
    return sink(nullText);
  }

  std::unique_ptr<RowSink> sink(std::optional<std::string> nullText = std::nullopt) {
    table_ = {"t", database_->execute("SELECT * FROM t").columns};
    database_->rollback();
    return database_->openRows(table_, table_.columns, nullText, 0, {});
  }

  // A row whose texts live as long as the test.
  Row row(Texts values) {
    Row row;
    for (const auto& value : values_.emplace_back(std::move(values))) {
      row.fields.push_back({value ? std::string_view(*value) : std::string_view(), !value});
    }
    return row;
  }

  // The state of the refusal; empty if the row was taken.
  std::string add(RowSink& sink, Texts values) {
    const Row added = row(std::move(values));
    const std::optional<Diagnostic> reason = sink.add(1, added);
    return reason ? reason->state : "";
  }

  std::string one(const std::string& sql) {
    const SqlResult result = database_->execute(sql);
    return result.rows.at(0).at(0).value_or("NULL");
  }

  // What opening or a first look says of a file with this content.
  static std::string complaint(const std::string& file) {
    try {
      open(file);
    } catch (const DatabaseError& error) {
      EXPECT_EQ(error.step(), Step::kConnect);
      EXPECT_EQ(error.fault(), Fault::kPermanent);
      return error.what();
    }
    return {};
  }

  static void write(const std::string& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
  }

  static constexpr const char* kFile = "sqlite-test/t.db";
  const std::filesystem::path folder_ = "sqlite-test";
  std::unique_ptr<Database> database_;
  TargetTable table_;
  std::list<Texts> values_;
};

TEST_F(SqliteDatabaseTest, MakesAFileThatIsNotThere) {
  run("CREATE TABLE t (a)");
  EXPECT_TRUE(std::filesystem::exists(kFile));
}

TEST_F(SqliteDatabaseTest, TakesAPathBeyondAscii) {
  const std::string file = "sqlite-test/\u00e9\u6f22.db";
  open(file)->execute("CREATE TABLE t (a)");
  EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(u8"sqlite-test/\u00e9\u6f22.db")));
}

TEST_F(SqliteDatabaseTest, RefusesAnAddressWithoutAFile) {
  EXPECT_THROW(sqliteFileOf("sqlite:"), tools::MisuseError);
  EXPECT_THROW(sqliteFileOf("sqlite::memory:"), tools::MisuseError);
  EXPECT_EQ(sqliteFileOf("sqlite:C:\\data\\a b.db"), "C:\\data\\a b.db");
}

TEST_F(SqliteDatabaseTest, SaysWhatIsWrongWithAFile) {
  write("sqlite-test/text.db", std::string(5000, 'x'));
  EXPECT_THAT(complaint("sqlite-test/text.db"),
              AllOf(HasSubstr("not a database"), HasSubstr("another program")));
  EXPECT_THAT(complaint("sqlite-test/nowhere/t.db"),
              AllOf(HasSubstr("unable to open"), HasSubstr("folder")));
}

TEST_F(SqliteDatabaseTest, SaysThatAFileIsDamaged) {
  run("CREATE TABLE t (a)");
  run("INSERT INTO t VALUES (zeroblob(50000))");
  database_.reset();
  std::filesystem::resize_file(kFile, 8192);
  EXPECT_THAT(complaint(kFile), AllOf(HasSubstr("malformed"), HasSubstr("integrity_check")));
}

TEST_F(SqliteDatabaseTest, UndoesWhatWasNotCommitted) {
  run("CREATE TABLE t (a)");
  database_->execute("INSERT INTO t VALUES (1)");
  database_->rollback();
  EXPECT_EQ(one("SELECT count(*) FROM t"), "0");
  database_->execute("INSERT INTO t VALUES (1)");
  database_ = open();
  EXPECT_EQ(one("SELECT count(*) FROM t"), "0");
  database_->execute("INSERT INTO t VALUES (1)");
  database_->commit();
  database_ = open();
  EXPECT_EQ(one("SELECT count(*) FROM t"), "1");
}

TEST_F(SqliteDatabaseTest, BindsParametersOfEachKind) {
  run("CREATE TABLE t (a, b, c)");
  const std::array<SqlValue, 3> values{SqlValue(std::uint64_t{7}), SqlValue(std::string("x")),
                                       SqlValue()};
  EXPECT_EQ(database_->execute("INSERT INTO t VALUES (?, ?, ?)", values).changed, 1);
  const SqlResult result =
      database_->execute("SELECT a AS first, typeof(a), b, c FROM t WHERE a = ?",
                         std::array{SqlValue(std::uint64_t{7})});
  EXPECT_THAT(result.columns, ElementsAre("first", "typeof(a)", "b", "c"));
  EXPECT_THAT(result.rows, ElementsAre(Texts{"7", "integer", "x", std::nullopt}));
  EXPECT_EQ(database_->execute("DELETE FROM t WHERE a = ?", std::array{SqlValue(std::uint64_t{8})})
                .changed,
            0);
}

TEST_F(SqliteDatabaseTest, SaysWhenARowIsThereAlready) {
  run("CREATE TABLE t (a PRIMARY KEY)");
  const std::array value{SqlValue(std::string("x"))};
  database_->execute("INSERT INTO t VALUES (?)", value);
  try {
    database_->execute("INSERT INTO t VALUES (?)", value);
    FAIL();
  } catch (const DatabaseError& error) {
    EXPECT_EQ(error.fault(), Fault::kBadRow);
    EXPECT_EQ(error.diagnostic().state, "23505");
  }
}

// The columns' types decide what a text becomes.
TEST_F(SqliteDatabaseTest, ConvertsTextsAsTheColumnsTypesSay) {
  const auto rows = sinkFor("(i INTEGER, r REAL, n NUMERIC, x TEXT, b BLOB, none)");
  const Texts kinds = {"1",          "1.5", "1e3", "abc", "",    "0x10", " 7 ",
                       "5000000000", "-12", "0",   "-0",  "007", "+5",   "-"};
  for (const auto& text : kinds) EXPECT_EQ(add(*rows, {text, text, text, text, text, text}), "");
  database_->commit();
  const std::string quoted =
      "SELECT quote(i), quote(r), quote(n), quote(x), quote(b), quote(none) FROM t";
  EXPECT_THAT(database_->execute(quoted).rows,
              ElementsAre(Texts{"1", "1.0", "1", "'1'", "'1'", "'1'"},
                          Texts{"1.5", "1.5", "1.5", "'1.5'", "'1.5'", "'1.5'"},
                          Texts{"1000", "1000.0", "1000", "'1e3'", "'1e3'", "'1e3'"},
                          Texts{"'abc'", "'abc'", "'abc'", "'abc'", "'abc'", "'abc'"},
                          Texts{"''", "''", "''", "''", "''", "''"},
                          Texts{"'0x10'", "'0x10'", "'0x10'", "'0x10'", "'0x10'", "'0x10'"},
                          Texts{"7", "7.0", "7", "' 7 '", "' 7 '", "' 7 '"},
                          Texts{"5000000000", "5000000000.0", "5000000000", "'5000000000'",
                                "'5000000000'", "'5000000000'"},
                          Texts{"-12", "-12.0", "-12", "'-12'", "'-12'", "'-12'"},
                          Texts{"0", "0.0", "0", "'0'", "'0'", "'0'"},
                          Texts{"0", "0.0", "0", "'-0'", "'-0'", "'-0'"},
                          Texts{"7", "7.0", "7", "'007'", "'007'", "'007'"},
                          Texts{"5", "5.0", "5", "'+5'", "'+5'", "'+5'"},
                          Texts{"'-'", "'-'", "'-'", "'-'", "'-'", "'-'"}));
}

TEST_F(SqliteDatabaseTest, KeepsToTheTypesOfAStrictTable) {
  const auto rows = sinkFor("(i INTEGER, r REAL, x TEXT, b BLOB, a ANY) STRICT");
  EXPECT_EQ(add(*rows, {"1", "2", "3", std::nullopt, "4"}), "");
  EXPECT_EQ(add(*rows, {"x", "2", "3", std::nullopt, "4"}), "22018");
  EXPECT_EQ(add(*rows, {"1", "x", "3", std::nullopt, "4"}), "22018");
  EXPECT_EQ(add(*rows, {"1", "2", "3", "x", "4"}), "22018");
  EXPECT_THAT(
      database_->execute("SELECT quote(i), quote(r), quote(x), quote(b), quote(a) FROM t").rows,
      ElementsAre(Texts{"1", "2.0", "'3'", "NULL", "'4'"}));
}

TEST_F(SqliteDatabaseTest, TellsNullsFromEmptyTexts) {
  const auto rows = sinkFor("(a TEXT, b TEXT, c TEXT)", "nil");
  Row added = row({"", std::nullopt, "nil"});
  added.fields[0].text = {};  // an empty view points to nothing
  EXPECT_FALSE(rows->add(1, added));
  EXPECT_THAT(database_->execute("SELECT quote(a), quote(b), quote(c) FROM t").rows,
              ElementsAre(Texts{"''", "NULL", "NULL"}));
}

TEST_F(SqliteDatabaseTest, StoresTextsInTheFilesOwnEncoding) {
  database_->execute("PRAGMA foreign_keys");  // begins no write
  database_.reset();
  std::filesystem::remove(kFile);
  database_ = open();
  database_->rollback();
  database_->execute("PRAGMA encoding = 'UTF-16le'");
  database_->commit();
  const auto rows = sinkFor("(a TEXT)");
  EXPECT_EQ(add(*rows, {"\u00e9\u6f22\U0001f600"}), "");
  EXPECT_EQ(one("PRAGMA encoding"), "UTF-16le");
  EXPECT_EQ(one("SELECT a FROM t"), "\u00e9\u6f22\U0001f600");
}

TEST_F(SqliteDatabaseTest, SaysOfEachBadRowWhyItIsRefused) {
  run("CREATE TABLE parent (id INTEGER PRIMARY KEY)");
  run("CREATE TABLE t (id INTEGER PRIMARY KEY, n TEXT NOT NULL DEFAULT 'd', u TEXT UNIQUE,"
      " c INTEGER CHECK (typeof(c) = 'integer'), p REFERENCES parent (id))");
  const auto rows = sink();
  EXPECT_EQ(add(*rows, {"1", "n", "u", "1", std::nullopt}), "");
  EXPECT_EQ(add(*rows, {"1", "n", "v", "1", std::nullopt}), "23505");
  EXPECT_EQ(add(*rows, {"2", "n", "u", "1", std::nullopt}), "23505");
  EXPECT_EQ(add(*rows, {"2", std::nullopt, "v", "1", std::nullopt}), "23502");
  EXPECT_EQ(add(*rows, {"2", "n", "v", "x", std::nullopt}), "23514");
  EXPECT_EQ(add(*rows, {"2", "n", "v", "1", "9"}), "23503");
  EXPECT_EQ(add(*rows, {"x", "n", "v", "1", std::nullopt}), "22018");
  EXPECT_EQ(add(*rows, {"2", "n", "v", "1", std::nullopt}), "");
  database_->commit();
  EXPECT_EQ(one("SELECT group_concat(id) FROM t"), "1,2");
}

TEST_F(SqliteDatabaseTest, ADeferredForeignKeyFailsAtTheCommit) {
  run("CREATE TABLE parent (id INTEGER PRIMARY KEY)");
  run("CREATE TABLE t (p REFERENCES parent (id) DEFERRABLE INITIALLY DEFERRED)");
  const auto rows = sink();
  EXPECT_EQ(add(*rows, {"9"}), "");
  try {
    database_->commit();
    FAIL();
  } catch (const DatabaseError& error) {
    EXPECT_EQ(error.fault(), Fault::kPermanent);
    EXPECT_EQ(error.diagnostic().state, "23503");
  }
  database_->rollback();
  EXPECT_EQ(one("SELECT count(*) FROM t"), "0");
}

TEST_F(SqliteDatabaseTest, KeepsWhatTheTableSaysOfConflicts) {
  auto rows = sinkFor("(a INTEGER PRIMARY KEY ON CONFLICT REPLACE, b)");
  EXPECT_EQ(add(*rows, {"1", "x"}), "");
  EXPECT_EQ(add(*rows, {"1", "y"}), "");
  EXPECT_EQ(one("SELECT b FROM t"), "y");
  database_->commit();
  for (const char* kind : {"IGNORE", "FAIL", "ABORT"}) {
    rows.reset();
    run("DROP TABLE t");
    rows = sinkFor(std::string("(a INTEGER UNIQUE ON CONFLICT ") + kind + ")");
    EXPECT_EQ(add(*rows, {"1"}), "");
    EXPECT_EQ(add(*rows, {"1"}), std::string(kind) == "IGNORE" ? "21S02" : "23505") << kind;
    EXPECT_EQ(add(*rows, {"2"}), "");
    database_->commit();
    EXPECT_EQ(one("SELECT group_concat(a) FROM t"), "1,2") << kind;
  }
}

TEST_F(SqliteDatabaseTest, NoticesARowThatUndoesTheTransaction) {
  const auto rows = sinkFor("(a INTEGER UNIQUE ON CONFLICT ROLLBACK)");
  EXPECT_EQ(add(*rows, {"1"}), "");
  const Row again = row({"1"});
  try {
    rows->add(17, again);
    FAIL();
  } catch (const RowsRefused& error) {
    EXPECT_THAT(error.rows(), ElementsAre(17));
    EXPECT_EQ(error.diagnostic().state, "23505");
  }
  // What comes after it is not begun in a transaction of its own.
  EXPECT_THROW(database_->execute("INSERT INTO t VALUES (2)"), DatabaseError);
  EXPECT_THROW(database_->commit(), DatabaseError);
  database_->rollback();
  EXPECT_EQ(one("SELECT count(*) FROM t"), "0");
}

TEST_F(SqliteDatabaseTest, ATriggersChangesAreOfTheRow) {
  run("CREATE TABLE noted (a)");
  run("CREATE TABLE t (a)");
  run("CREATE TRIGGER note AFTER INSERT ON t BEGIN INSERT INTO noted VALUES (new.a); END");
  const auto rows = sink();
  EXPECT_EQ(add(*rows, {"1"}), "");
  EXPECT_EQ(add(*rows, {"2"}), "");
  database_->commit();
  EXPECT_EQ(one("SELECT group_concat(a) FROM noted"), "1,2");
}

TEST_F(SqliteDatabaseTest, NothingIsLeftOfARowThatATriggerRefuses) {
  for (const char* kind : {"IGNORE", "FAIL, 'no'", "ABORT, 'no'"}) {
    for (const char* when : {"BEFORE", "AFTER"}) {
      run("DROP TABLE IF EXISTS t");
      run("DROP TABLE IF EXISTS noted");
      run("CREATE TABLE noted (a)");
      run("CREATE TABLE t (a)");
      run(std::string("CREATE TRIGGER no ") + when +
          " INSERT ON t BEGIN INSERT INTO noted VALUES (new.a);"
          " SELECT RAISE(" +
          kind + ") WHERE new.a = 'bad'; END");
      const auto rows = sink();
      const std::string context = std::string(when) + " " + kind;
      EXPECT_EQ(add(*rows, {"1"}), "") << context;
      // After the insertion there is nothing left to ignore.
      const bool isTaken = context == "AFTER IGNORE";
      const std::string state = isTaken ? "" : std::string(kind) == "IGNORE" ? "21S02" : "23000";
      EXPECT_EQ(add(*rows, {"bad"}), state) << context;
      EXPECT_EQ(add(*rows, {"2"}), "") << context;
      database_->commit();
      const std::string kept = isTaken ? "1,bad,2" : "1,2";
      EXPECT_EQ(one("SELECT group_concat(a) FROM t"), kept) << context;
      EXPECT_EQ(one("SELECT group_concat(a) FROM noted"), kept) << context;
    }
  }
}

TEST_F(SqliteDatabaseTest, ATriggerThatIsMadeDuringTheLoadLeavesNothing) {
  const auto rows = sinkFor("(a)");
  EXPECT_EQ(add(*rows, {"1"}), "");
  database_->commit();
  const auto other = open();
  other->execute("CREATE TABLE noted (a)");
  other->execute(
      "CREATE TRIGGER no AFTER INSERT ON t BEGIN INSERT INTO noted VALUES (new.a);"
      " SELECT RAISE(FAIL, 'no'); END");
  other->commit();
  const Row bad = row({"bad"});
  EXPECT_THROW(rows->add(2, bad), RowsRefused);
}

TEST_F(SqliteDatabaseTest, ALockOfAnotherPasses) {
  run("CREATE TABLE t (a)");
  const auto other = open();
  other->execute("INSERT INTO t VALUES (1)");
  try {
    database_->execute("INSERT INTO t VALUES (2)");
    FAIL();
  } catch (const DatabaseError& error) {
    EXPECT_EQ(error.fault(), Fault::kLost);
    EXPECT_TRUE(error.isLockedByAnother());
  }
}

TEST_F(SqliteDatabaseTest, AReaderLetsNoCommitHappen) {
  run("CREATE TABLE t (a)");
  const auto reader = open();
  reader->execute("SELECT * FROM t");
  database_->execute("INSERT INTO t VALUES (1)");
  EXPECT_THROW(database_->commit(), DatabaseError);
  reader->rollback();
  database_->commit();
  EXPECT_EQ(one("SELECT count(*) FROM t"), "1");
}

TEST_F(SqliteDatabaseTest, LeavesTheJournalModeAsItIs) {
  database_->rollback();
  run("CREATE TABLE t (a)");
  EXPECT_EQ(one("PRAGMA journal_mode"), "delete");
}

TEST_F(SqliteDatabaseTest, RefusesWhatIsNoTableOfItsOwn) {
  run("CREATE TABLE t (a)");
  run("CREATE VIEW v AS SELECT a FROM t");
  run("CREATE VIRTUAL TABLE f USING fts5(a)");
  const auto refusal = [&](const std::string& table) -> std::string {
    try {
      database_->requireLoadable({table, {"a"}}, {"a"});
    } catch (const tools::ToolError& error) {
      return error.what();
    }
    return {};
  };
  EXPECT_THAT(refusal("v"), HasSubstr("is a view"));
  EXPECT_THAT(refusal("main.\"V\""), HasSubstr("is a view"));
  EXPECT_THAT(refusal("f"), HasSubstr("is a virtual table"));
  EXPECT_THAT(refusal("t"), IsEmpty());
  EXPECT_THAT(refusal("MAIN.T"), IsEmpty());
}

TEST_F(SqliteDatabaseTest, RefusesGeneratedColumnsAlone) {
  run("CREATE TABLE t (a, b AS (a || 'x'), c AS (a) STORED)");
  const TargetTable table{"t", {"a", "b", "c"}};
  EXPECT_NO_THROW(database_->requireLoadable(table, {"a"}));
  EXPECT_THROW(database_->requireLoadable(table, {"a", "b"}), tools::ToolError);
  EXPECT_THROW(database_->requireLoadable(table, {"a", "c"}), tools::ToolError);
}

}  // namespace
}  // namespace tallow::load
