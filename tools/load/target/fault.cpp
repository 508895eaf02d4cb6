#include "load/target/fault.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <utility>

namespace tallow::load {
namespace {

// SQLite's result codes. The low byte is the code. The higher bytes give details.
constexpr int kSqliteCodeMask = 0xff;
constexpr int kSqliteBusy = 5;
constexpr int kSqliteLocked = 6;
constexpr int kSqliteCannotOpen = 14;
constexpr int kSqliteTooBig = 18;
constexpr int kSqliteConstraint = 19;
constexpr int kSqliteMismatch = 20;

// Native codes of MariaDB and MySQL for faults that pass, whatever their SQLSTATE.
constexpr std::array kMariadbPassing = {
    1020,                          // the row has changed since it was read
    1040, 1203, 1226,              // too many connections
    1047,                          // not connected to the cluster's primary part
    1053, 1077, 1079,              // shutting down
    1180,                          // the commit found no quorum
    1205, 1213, 1614,              // lock wait, deadlock
    1290, 1792, 1836,              // the server has become read-only
    1317, 1927, 1969, 3024, 4031,  // query or connection killed, or out of time
    2002, 2003, 2006, 2013, 2055,  // from the client: there is no server, or no longer one
};

// Native codes of MariaDB and MySQL for a login that is refused, or that asks for something that
// does not exist.
constexpr std::array kMariadbRefused = {1044, 1045, 1049, 1227, 1251, 1698};

// Native codes of MariaDB and MySQL for a value or row that does not fit. They also come as HY000
// or as a warning.
constexpr std::array kMariadbBadData = {1048, 1264, 1265, 1292, 1364, 1366, 1406, 1411, 1416, 4025};

constexpr int kMariadbLockWait = 1205;

// What PostgreSQL servers say when they refuse a login. Their driver passes no SQLSTATE on.
constexpr std::array<std::string_view, 5> kPostgresRefusals = {
    "authentication failed", "no password supplied", "no pg_hba.conf entry", "does not exist",
    "not permitted to log in"};

bool contains(std::span<const int> codes, int code) {
  return std::ranges::find(codes, code) != codes.end();
}

// Whether the class stands for a fault of the data or of a constraint.
bool blamesRow(std::string_view stateClass) {
  return stateClass == "22" || stateClass == "23";
}

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

Fault classifyMariadb(const Diagnostic& diagnostic, Step step) {
  if (contains(kMariadbPassing, diagnostic.native)) return Fault::kLost;
  // In strict mode the driver reports a refused value with the state of a warning.
  const bool refused = diagnostic.state == "HY000" || diagnostic.state.starts_with("01");
  const bool isData = contains(kMariadbBadData, diagnostic.native);
  return step == Step::kInsert && refused && isData ? Fault::kBadRow : Fault::kPermanent;
}

bool isRefusedForGood(const Diagnostic& diagnostic) {
  const std::string_view state = diagnostic.state;
  // 01000 is what the driver manager reports if it cannot load a driver's file. Wine 10's reports
  // nothing at all if there is no such driver.
  if (state.starts_with("28") || state.starts_with("3D") || state.starts_with("IM") ||
      state == "01000" || (state.empty() && diagnostic.text.empty()) ||
      contains(kMariadbRefused, diagnostic.native)) {
    return true;
  }
  if (diagnostic.text.starts_with("[SQLite]") && diagnostic.native == kSqliteCannotOpen)
    return true;
  return std::ranges::any_of(kPostgresRefusals, [&](std::string_view words) {
    return diagnostic.text.find(words) != std::string::npos;
  });
}

}  // namespace

Dialect dialectOf(std::string_view product) {
  const auto names = [&](std::string_view word) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return !std::ranges::search(product, word, {}, lower).empty();
  };
  if (names("sqlite")) return Dialect::kSqlite;
  if (names("mariadb") || names("mysql")) return Dialect::kMariadb;
  return names("postgres") ? Dialect::kPostgres : Dialect::kStandard;
}

Fault classify(const Diagnostic& diagnostic, Dialect dialect, Step step) {
  const std::string_view state = diagnostic.state;
  if (step == Step::kConnect) {
    return isRefusedForGood(diagnostic) ? Fault::kPermanent : Fault::kLost;
  }
  if (dialect == Dialect::kSqlite && state == "HY000") {
    return classifySqlite(diagnostic.native, step);
  }
  const std::string_view stateClass = state.substr(0, 2);
  // These are our own state for rows that did not arrive, and a driver's for a value that was cut.
  if (step == Step::kInsert && (state == "21S02" || state == "01004")) return Fault::kBadRow;
  // 40002 is a constraint that fails at the commit, and 57P04 a database that was dropped.
  const bool passes = stateClass == "08" || stateClass == "40" || stateClass == "57" ||
                      state == "25006" || state == "53300" || state == "55P03" ||
                      state == "HYT00" || state == "HYT01";
  if (passes && state != "40002" && state != "57P04") return Fault::kLost;
  if (step == Step::kInsert && blamesRow(stateClass)) return Fault::kBadRow;
  return dialect == Dialect::kMariadb ? classifyMariadb(diagnostic, step) : Fault::kPermanent;
}

bool altersValue(const Diagnostic& diagnostic, Dialect dialect) {
  return diagnostic.state == "01004" ||
         (dialect == Dialect::kMariadb && contains(kMariadbBadData, diagnostic.native));
}

bool isLockedByAnother(const Diagnostic& diagnostic, Dialect dialect) {
  if (dialect == Dialect::kSqlite) {
    const int code = diagnostic.native & kSqliteCodeMask;
    return code == kSqliteBusy || code == kSqliteLocked;
  }
  return diagnostic.state == "55P03" ||
         (dialect == Dialect::kMariadb && diagnostic.native == kMariadbLockWait);
}

std::string describe(const Diagnostic& diagnostic) {
  std::string text = diagnostic.text.empty() ? "the driver gives no reason" : diagnostic.text;
  std::replace_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  text += " (SQLSTATE " + (diagnostic.state.empty() ? "none" : diagnostic.state);
  if (diagnostic.native != 0) text += ", native " + std::to_string(diagnostic.native);
  return text + ")";
}

DatabaseError::DatabaseError(Diagnostic diagnostic, Fault fault, Step step, bool lockedByAnother)
    : std::runtime_error(describe(diagnostic)),
      diagnostic_(std::move(diagnostic)),
      fault_(fault),
      step_(step),
      lockedByAnother_(lockedByAnother) {}

DatabaseError::DatabaseError(Diagnostic diagnostic, Dialect dialect, Step step)
    : std::runtime_error(describe(diagnostic)),
      diagnostic_(std::move(diagnostic)),
      fault_(classify(diagnostic_, dialect, step)),
      step_(step),
      lockedByAnother_(load::isLockedByAnother(diagnostic_, dialect)) {}

}  // namespace tallow::load
