// What SQLite's result codes mean.
#pragma once

#include <string_view>

#include "load/target/fault.hpp"

namespace tallow::load {

// The SQLSTATE that comes nearest to an extended result code. Those of a bad row begin with 22 or
// 23.
std::string_view sqliteState(int code) noexcept;

// A code of a row that the database refuses means that only at Step::kInsert.
Fault sqliteFault(int code, Step step) noexcept;

// Whether another connection holds what this one needs.
bool sqliteIsLocked(int code) noexcept;

// What somebody can do about the code, as the end of a sentence. Empty if SQLite's words say it.
std::string_view sqliteAdvice(int code) noexcept;

}  // namespace tallow::load
