// What an error of the database means for a load.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace tallow::load {

// What a driver reports about a failed call.
struct Diagnostic {
  std::string state;  // SQLSTATE, five characters; empty if the driver gave none
  int native = 0;     // the database's own number
  std::string text;   // UTF-8
};

enum class Dialect {
  kStandard,
  kSqlite,   // its driver always returns HY000; only the native code says more
  kMariadb,  // and MySQL: HY000 has many meanings, and the native code says more
  kPostgres,
};

// The dialect of a database that calls itself by this name.
Dialect dialectOf(std::string_view product);

// The step of a load in which the error came.
enum class Step { kConnect, kInsert, kOther };

enum class Fault {
  kBadRow,     // the database refuses a value or a row of this statement
  kLost,       // rolled back or disconnected: connect again and go back to the checkpoint
  kPermanent,  // another attempt cannot help before something has been mended
};

// If the connection is found dead, it is lost, whatever the error says. The caller checks that. A
// connection that cannot be made counts as lost, unless the login is refused or the driver is
// missing.
Fault classify(const Diagnostic& diagnostic, Dialect dialect, Step step);

// Whether a success with this diagnostic means that a value was altered to fit.
bool altersValue(const Diagnostic& diagnostic, Dialect dialect);

// Whether another connection holds what this one needs for too long.
bool isLockedByAnother(const Diagnostic& diagnostic, Dialect dialect);

// A call of the database failed. what() is "text (SQLSTATE 23505, native 7)".
class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(Diagnostic diagnostic, Fault fault, Step step = Step::kOther,
                bool lockedByAnother = false);
  // With the fault that the diagnostic means in this dialect.
  DatabaseError(Diagnostic diagnostic, Dialect dialect, Step step);

  const Diagnostic& diagnostic() const noexcept { return diagnostic_; }
  // What the failure means for the load.
  Fault fault() const noexcept { return fault_; }
  // kConnect if the connection could not be made.
  Step step() const noexcept { return step_; }
  // Whether another connection holds what this one needs for too long.
  bool isLockedByAnother() const noexcept { return lockedByAnother_; }

 private:
  Diagnostic diagnostic_;
  Fault fault_;
  Step step_;
  bool lockedByAnother_;
};

// The diagnostic in one line.
std::string describe(const Diagnostic& diagnostic);

}  // namespace tallow::load
