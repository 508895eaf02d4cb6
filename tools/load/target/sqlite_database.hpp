// The way into an SQLite file: the library is a part of this program.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "load/target/database.hpp"

namespace tallow::load {

// Whether the address names a file of SQLite: sqlite:FILE.
bool namesSqliteFile(std::string_view address) noexcept;

// The file that such an address names. Throws MisuseError if it names none.
std::string sqliteFileOf(std::string_view address);

// Opens the file, and makes it if it is not there. `file` is UTF-8, relative or absolute.
// `longestWait` is how long a statement waits for a lock. Throws DatabaseError.
std::unique_ptr<Database> openSqlite(const std::string& file,
                                     std::chrono::milliseconds longestWait);

}  // namespace tallow::load
