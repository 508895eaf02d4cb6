#include "load/target/sqlite_fault.hpp"

#include <sqlite3.h>

namespace tallow::load {
namespace {

// The low byte is the code. The higher bytes give details.
constexpr int kCodeMask = 0xff;

constexpr std::string_view kLocked = "55P03";

std::string_view stateOfConstraint(int code) noexcept {
  switch (code) {
    case SQLITE_CONSTRAINT_UNIQUE:
    case SQLITE_CONSTRAINT_PRIMARYKEY:
    case SQLITE_CONSTRAINT_ROWID:
      return "23505";
    case SQLITE_CONSTRAINT_NOTNULL:
      return "23502";
    case SQLITE_CONSTRAINT_FOREIGNKEY:
      return "23503";
    case SQLITE_CONSTRAINT_CHECK:
      return "23514";
    case SQLITE_CONSTRAINT_DATATYPE:
      return "22018";
    default:  // a trigger's RAISE, and what a virtual table or a function says
      return "23000";
  }
}

}  // namespace

std::string_view sqliteState(int code) noexcept {
  switch (code & kCodeMask) {
    case SQLITE_CONSTRAINT:
      return stateOfConstraint(code);
    case SQLITE_MISMATCH:
      return "22018";
    case SQLITE_TOOBIG:
      return "22001";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return kLocked;
    case SQLITE_ABORT:
      return "40000";
    case SQLITE_FULL:
      return "53100";
    case SQLITE_NOMEM:
      return "53200";
    case SQLITE_IOERR:
      return "58030";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return "XX001";
    case SQLITE_CANTOPEN:
      return "08001";
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return "42501";
    case SQLITE_ERROR:
      return "42000";
    default:
      return "HY000";
  }
}

Fault sqliteFault(int code, Step step) noexcept {
  switch (code & kCodeMask) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:  // somebody else was always a little earlier at the log's lock
    case SQLITE_ABORT:     // the transaction has been rolled back
      return Fault::kLost;
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
      return step == Step::kInsert ? Fault::kBadRow : Fault::kPermanent;
    default:
      return Fault::kPermanent;
  }
}

bool sqliteIsLocked(int code) noexcept {
  return sqliteState(code) == kLocked;
}

std::string_view sqliteAdvice(int code) noexcept {
  switch (code & kCodeMask) {
    case SQLITE_FULL:
      return "make room on the disk that the file is on";
    case SQLITE_NOMEM:
      return "close other programs";
    case SQLITE_IOERR:
      return "see whether the disk works and is still there";
    case SQLITE_CORRUPT:
      return "the file is damaged: look at it with PRAGMA integrity_check, and bring back a copy";
    case SQLITE_NOTADB:
      return "the file belongs to another program, or is encrypted";
    case SQLITE_CANTOPEN:
      return "the file must be one that you can write, in a folder that is there and that you can "
             "write to, because the journal is kept there";
    case SQLITE_READONLY:
    case SQLITE_PERM:
      return "make the file and its folder such that you can write to them";
    default:
      return {};
  }
}

}  // namespace tallow::load
