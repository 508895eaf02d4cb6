#include "load/sql_fault.hpp"

#include <algorithm>
#include <string_view>
#include <utility>

namespace tallow::load {
namespace {

// SQLite's result codes. The low byte is the code; what lies above it refines it.
constexpr int kSqliteCodeMask = 0xff;
constexpr int kSqliteBusy = 5;
constexpr int kSqliteLocked = 6;
constexpr int kSqliteTooBig = 18;
constexpr int kSqliteConstraint = 19;
constexpr int kSqliteMismatch = 20;

Fault classifySqlite(int native, Step step) {
  switch (native & kSqliteCodeMask) {
    case kSqliteBusy:
    case kSqliteLocked:
      return Fault::kLost;
    case kSqliteTooBig:
    case kSqliteConstraint:
    case kSqliteMismatch:
      return step == Step::kInsert ? Fault::kBadRow : Fault::kPermanent;
    default:
      return Fault::kPermanent;
  }
}

}  // namespace

Fault classify(const Diagnostic& diagnostic, Dialect dialect, Step step) {
  const std::string_view state = diagnostic.state;
  if (dialect == Dialect::kSqlite && state == "HY000") {
    return classifySqlite(diagnostic.native, step);
  }
  const std::string_view stateClass = state.substr(0, 2);
  if (stateClass == "08" || stateClass == "40" || stateClass == "57" || state == "HYT00" ||
      state == "HYT01") {
    return Fault::kLost;
  }
  if (step == Step::kInsert && (stateClass == "22" || stateClass == "23")) return Fault::kBadRow;
  return Fault::kPermanent;
}

std::string describe(const Diagnostic& diagnostic) {
  std::string text = diagnostic.text.empty() ? "the driver gives no reason" : diagnostic.text;
  std::replace_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  text += " (SQLSTATE " + (diagnostic.state.empty() ? "none" : diagnostic.state);
  if (diagnostic.native != 0) text += ", native " + std::to_string(diagnostic.native);
  return text + ")";
}

DatabaseError::DatabaseError(Diagnostic diagnostic, Step step)
    : std::runtime_error(describe(diagnostic)), diagnostic_(std::move(diagnostic)), step_(step) {}

}  // namespace tallow::load
