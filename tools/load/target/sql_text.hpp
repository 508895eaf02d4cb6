// Writes statements as text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tallow::load {

// Whether the name needs no quotes: letters, digits and underscores, with no digit at the
// beginning.
bool isPlainName(std::string_view name);

// The name in the database's quotes, with those inside doubled. If `quote` is empty or blank, the
// database has none. Then only plain names can be used, and others throw ToolError.
std::string quoteName(std::string_view name, std::string_view quote);

enum class Quoting {
  kWhereNeeded,  // plain names stay bare, so that the database folds their case as it does yours
  kAlways,
};

// One part of a table's name. A part that is in quotes on the command line always gets quotes.
struct NamePart {
  std::string text;
  bool quoted = false;

  bool operator==(const NamePart&) const = default;
};

// A table as the command line names it: up to four parts with dots between them, each plain or in
// quotes ("..." or `...`, doubled inside, or [...]). Throws MisuseError for anything else.
std::vector<NamePart> parseTableName(std::string_view table);

// The table's name as a statement spells it. No part of it can be anything but a name.
std::string tableName(std::string_view table, std::string_view quote, Quoting quoting);

// INSERT of `rows` rows, one parameter for each value.
std::string insertStatement(const std::string& table, const std::vector<std::string>& quotedColumns,
                            std::size_t rows);

// CREATE TABLE with all columns of one type.
std::string createStatement(const std::string& table, const std::vector<std::string>& quotedColumns,
                            const std::string& type);

// The default number of rows in a statement, small enough for every database's limit on parameters.
std::size_t defaultBatch(std::size_t columns);

// The largest power of two that is not above `rows`. The last rows are inserted in such pieces, so
// that few statements serve all sizes.
std::size_t pieceOf(std::size_t rows);

}  // namespace tallow::load
