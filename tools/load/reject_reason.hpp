// Why a row is rejected, and the line that says so.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "load/row_parser.hpp"
#include "load/sql_fault.hpp"

namespace tallow::load {

// The fault of a row that the parser finds bad or that does not have `columns` fields. None if the
// row is good.
std::optional<Diagnostic> faultOf(const Row& row, std::size_t columns);

// The line of the reasons file.
std::string reasonLine(const Row& row, const Diagnostic& reason);

}  // namespace tallow::load
