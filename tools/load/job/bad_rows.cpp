#include "load/job/bad_rows.hpp"

#include <string_view>

namespace tallow::load {
namespace {

std::string quoted(std::string_view text) {
  std::string value = "\"";
  for (const char c : text) {
    if (c == '"') value += '"';
    value += c;
  }
  return value + "\"";
}

}  // namespace

std::optional<Diagnostic> faultOf(const Row& row, std::size_t columns) {
  switch (row.defect) {
    case RowDefect::kMisplacedQuote:
      return Diagnostic{"22000", 0,
                        "a quote stands inside a value; put the value in quotes and double those "
                        "inside it"};
    case RowDefect::kHoldsNul:
      return Diagnostic{"22021", 0, "the row holds a NUL byte, which is no text"};
    case RowDefect::kNotUtf8:
      return Diagnostic{"22021", 0, "the row is not UTF-8"};
    case RowDefect::kNone:
      break;
  }
  if (row.fields.size() == columns) return std::nullopt;
  const bool cut = row.fields.size() > kMostFields;
  return Diagnostic{
      "21S01", 0,
      "the row has " +
          (cut ? "more than " + std::to_string(kMostFields) : std::to_string(row.fields.size())) +
          " fields instead of " + std::to_string(columns)};
}

std::string reasonLine(const Row& row, const Diagnostic& reason) {
  return std::to_string(row.line) + "," + std::to_string(row.offset) + "," + reason.state + "," +
         quoted(reason.text) + "\r\n";
}

void BadRowSearch::refused(std::span<const std::uint64_t> rows, const Diagnostic& reason) {
  if (rows.size() == 1) {
    bad_.emplace(rows.front(), reason);
    return;
  }
  boundaries_.insert({rows.front(), rows[rows.size() / 2], rows.back() + 1});
}

const Diagnostic* BadRowSearch::reasonAgainst(std::uint64_t row) const {
  const auto found = bad_.find(row);
  return found == bad_.end() ? nullptr : &found->second;
}

void BadRowSearch::clear() {
  boundaries_.clear();
  bad_.clear();
}

}  // namespace tallow::load
