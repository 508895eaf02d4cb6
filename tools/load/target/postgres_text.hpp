// What can be read from PostgreSQL's words, and how statements are put to it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tallow::load {

// Whether a connection string is the address of a PostgreSQL server: postgresql://... or
// postgres://...
bool namesPostgres(std::string_view connection) noexcept;

// The statement with $1, $2, ... in place of each `?` that stands outside of quotes.
std::string numberedParameters(std::string_view sql);

// The number of the row that a failed COPY names, from 1. `context` is what the server says about
// where it was, in its own language: in each, a line that begins with the table's name, or with
// "COPY" and the name, and then has the number. None if there is no such line, or if there are
// several that do not agree: a value or a trigger can bring lines of its own.
std::optional<std::uint64_t> rowOfCopy(std::string_view context, std::string_view table);

// The name that the server's context has for a table: the last part of how statements spell it.
std::string nameInContext(std::string_view sqlName);

// Whether libpq refused to connect for something in the address, the service file or the
// environment, so that another attempt can't help.
bool isWrongSetting(std::string_view message);

// The text without line breaks at its end, and with blanks for those inside.
std::string oneLine(std::string_view text);

}  // namespace tallow::load
