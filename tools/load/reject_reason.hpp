// Why a row is rejected, and how that is written down.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "load/row_parser.hpp"
#include "load/sql_fault.hpp"

namespace tallow::load {

/// Why a row that the parser finds bad, or that has not `columns` fields, is bad; nothing when it
/// is not.
std::optional<Diagnostic> faultOf(const Row& row, std::size_t columns);

/// The line of the reasons file.
std::string reasonLine(const Row& row, const Diagnostic& reason);

}  // namespace tallow::load
