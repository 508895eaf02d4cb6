#include "load/target/odbc.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <system_error>
#include <utility>

#include "common/text.hpp"
#include "common/tool_error.hpp"
#include "load/target/call_watch.hpp"
#include "load/target/connection_string.hpp"

namespace tallow::load {
namespace {

static_assert(sizeof(SQLWCHAR) == sizeof(wchar_t));

constexpr std::size_t kMostParameters = 32;
constexpr std::uintptr_t kLoginSeconds = 15;
constexpr std::size_t kLongestText = std::size_t{1} << 28U;  // units of UTF-16 in a column's value

// SQLWCHAR is unsigned short here, which is the same as wchar_t in all but name.
std::string fromSqlText(const SQLWCHAR* text, std::size_t length) {
  return tools::toUtf8({reinterpret_cast<const wchar_t*>(text), length});
}

SQLPOINTER attributeValue(std::uintptr_t value) {
  return reinterpret_cast<SQLPOINTER>(value);  // The interface passes integers as pointers.
}

bool succeeded(SQLRETURN result) {
  return result == SQL_SUCCESS || result == SQL_SUCCESS_WITH_INFO;
}

// The text in a buffer, whatever length its driver reports.
template <std::size_t size>
std::string textIn(const std::array<SQLWCHAR, size>& buffer) {
  const auto end = std::find(buffer.begin(), buffer.end(), SQLWCHAR{0});
  return fromSqlText(buffer.data(), static_cast<std::size_t>(end - buffer.begin()));
}

}  // namespace

std::vector<SQLWCHAR> toSqlText(std::string_view utf8) {
  const std::wstring wide = tools::toWide(utf8);
  std::vector<SQLWCHAR> text(wide.begin(), wide.end());
  text.push_back(0);
  return text;
}

OdbcHandle::OdbcHandle(SQLSMALLINT type, SQLHANDLE parent, Dialect dialect)
    : type_(type), dialect_(dialect) {
  if (succeeded(SQLAllocHandle(type, parent, &handle_))) return;
  throw DatabaseError({"HY001", 0, "the ODBC driver manager gives out no handle"},
                      Fault::kPermanent);
}

OdbcHandle::OdbcHandle(OdbcHandle&& other) noexcept
    : type_(other.type_),
      handle_(std::exchange(other.handle_, nullptr)),
      dialect_(other.dialect_) {}

OdbcHandle& OdbcHandle::operator=(OdbcHandle&& other) noexcept {
  std::swap(type_, other.type_);
  std::swap(handle_, other.handle_);
  std::swap(dialect_, other.dialect_);
  return *this;
}

OdbcHandle::~OdbcHandle() {
  if (handle_ != nullptr) SQLFreeHandle(type_, handle_);
}

Diagnostic OdbcHandle::diagnostic() const {
  std::array<SQLWCHAR, 6> state{};
  std::array<SQLWCHAR, 2048> text{};
  SQLINTEGER native = 0;
  SQLSMALLINT length = 0;
  if (!succeeded(SQLGetDiagRecW(type_, handle_, 1, state.data(), &native, text.data(),
                                static_cast<SQLSMALLINT>(text.size()), &length))) {
    return {};
  }
  return {textIn(state), native, textIn(text)};
}

void OdbcHandle::check(SQLRETURN result, Step step) const {
  if (!succeeded(result)) throw DatabaseError(diagnostic(), dialect_, step);
}

Connection::Connection(const std::string& connectionString, std::chrono::milliseconds longestWait)
    : environment_(SQL_HANDLE_ENV, nullptr) {
  environment_.check(SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                                   attributeValue(SQL_OV_ODBC3), SQL_IS_UINTEGER));
  connection_ = OdbcHandle(SQL_HANDLE_DBC, environment_.get());
  connect(withLockLimit(connectionString, longestWait));
  try {
    setUp(longestWait);
  } catch (...) {
    SQLDisconnect(connection_.get());
    throw;
  }
}

void Connection::connect(const std::string& connectionString) {
  // The driver's answer does not matter here, because not every driver knows the attribute.
  SQLSetConnectAttrW(connection_.get(), SQL_ATTR_LOGIN_TIMEOUT, attributeValue(kLoginSeconds),
                     SQL_IS_UINTEGER);
  std::vector<SQLWCHAR> text = toSqlText(connectionString);
  std::array<SQLWCHAR, 4096> completed{};  // with what a data source adds
  const WatchedCall watched;
  connection_.check(
      SQLDriverConnectW(connection_.get(), nullptr, text.data(), SQL_NTS, completed.data(),
                        static_cast<SQLSMALLINT>(completed.size()), nullptr, SQL_DRIVER_NOPROMPT),
      Step::kConnect);
  completed.back() = 0;
  refuseDangers(connectionString, textIn(completed));
}

// Refuses a connection string that asks the driver for what would undo the guarantees of a load.
void Connection::refuseDangers(const std::string& given, const std::string& completed) {
  const bool reconnects = asksToReconnect(given) || asksToReconnect(completed);
  if (!reconnects && !asksForNoTransactions(given) && !asksForNoTransactions(completed)) return;
  SQLDisconnect(connection_.get());
  if (!reconnects) {
    throw tools::MisuseError(
        "the connection string switches transactions off (NoTXN), and rows could then come twice; "
        "leave that out");
  }
  throw tools::MisuseError(
      "the connection string lets the driver connect again by itself (AUTO_RECONNECT, or a bit of "
      "OPTION), and rows could then come twice or not at all; leave that out: this program "
      "connects "
      "again itself");
}

void Connection::setUp(std::chrono::milliseconds longestWait) {
  connection_.setDialect(dialectOf(information(SQL_DBMS_NAME)));
  quote_ = information(SQL_IDENTIFIER_QUOTE_CHAR);
  textType_ = longTextType();
  mostParameters_ = parameterLimit();
  limitWaits(longestWait);
  if (dialect() == Dialect::kMariadb) {
    // Otherwise a value that does not fit is altered without notice.
    Statement(*this).execute("SET SESSION sql_mode = CONCAT(@@sql_mode, ',STRICT_ALL_TABLES')");
    Statement statement(*this);
    statement.execute("SELECT @@max_allowed_packet");
    if (statement.fetch()) largestStatement_ = statement.number(1);
  }
  connection_.check(SQLSetConnectAttrW(connection_.get(), SQL_ATTR_AUTOCOMMIT,
                                       attributeValue(SQL_AUTOCOMMIT_OFF), SQL_IS_UINTEGER));
}

void Connection::limitWaits(std::chrono::milliseconds longestWait) {
  const std::string amount = std::to_string(longestWait.count());
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(longestWait).count();
  switch (dialect()) {
    case Dialect::kSqlite:
      Statement(*this).execute("PRAGMA busy_timeout = " + amount);
      break;
    case Dialect::kMariadb:
      Statement(*this).execute("SET SESSION innodb_lock_wait_timeout = " +
                               std::to_string(std::max<long long>(seconds, 1)));
      break;
    case Dialect::kPostgres:
      Statement(*this).execute("SET lock_timeout = " + amount);
      break;
    case Dialect::kStandard:
      break;
  }
}

std::size_t Connection::parameterLimit() const {
  // Wine 10's driver manager binds no parameter after this one.
  constexpr SQLUSMALLINT kSmallestLimit = 1024;
  const Statement statement(*this);
  char value = 0;
  SQLLEN length = 0;
  const SQLRETURN bound =
      SQLBindParameter(statement.handle().get(), kSmallestLimit + 1, SQL_PARAM_INPUT, SQL_C_CHAR,
                       SQL_VARCHAR, 1, 0, &value, 1, &length);
  return SQL_SUCCEEDED(bound) ? driverLimit()
                              : std::min<std::size_t>(driverLimit(), kSmallestLimit);
}

// A statement's parameters are counted in 16 bits.
std::size_t Connection::driverLimit() const {
  // Its library accepts no answer above 30,000 bytes that describes parameters, with four bytes for
  // each.
  if (dialect() == Dialect::kPostgres) return 7498;
  if (dialect() != Dialect::kSqlite) return 65535;
  int major = 0;
  int minor = 0;
  std::sscanf(information(SQL_DBMS_VER).c_str(), "%d.%d", &major, &minor);
  return major > 3 || (major == 3 && minor >= 32) ? 32766 : 999;
}

Connection::~Connection() {
  const WatchedCall watched;
  SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_ROLLBACK);
  SQLDisconnect(connection_.get());
}

void Connection::commit() {
  const WatchedCall watched;
  const SQLRETURN result = SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_COMMIT);
  connection_.check(result);
  // With this driver a warning may be a failure.
  if (result == SQL_SUCCESS_WITH_INFO && dialect() == Dialect::kMariadb) {
    throw DatabaseError(connection_.diagnostic(), dialect(), Step::kOther);
  }
  // A driver that has noticed the break before has no transaction to commit, and reports success.
  if (isDead())
    throw DatabaseError({"08S01", 0, "the connection broke before the commit"}, Fault::kLost);
}

void Connection::rollback() {
  const WatchedCall watched;
  connection_.check(SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_ROLLBACK));
}

bool Connection::isDead() const {
  SQLUINTEGER dead = SQL_CD_FALSE;
  const WatchedCall watched;
  const SQLRETURN result = SQLGetConnectAttrW(connection_.get(), SQL_ATTR_CONNECTION_DEAD, &dead,
                                              SQL_IS_UINTEGER, nullptr);
  return succeeded(result) && dead == SQL_CD_TRUE;
}

std::string Connection::information(SQLUSMALLINT what) const {
  std::array<SQLWCHAR, 256> text{};
  SQLSMALLINT bytes = 0;
  connection_.check(SQLGetInfoW(connection_.get(), what, text.data(),
                                static_cast<SQLSMALLINT>(sizeof text), &bytes));
  return textIn(text);
}

std::string Connection::longTextType() const {
  if (dialect() == Dialect::kMariadb) return "LONGTEXT";  // The driver's own type ends at 16 MiB.
  Statement statement(*this);
  if (succeeded(SQLGetTypeInfoW(statement.handle().get(), SQL_LONGVARCHAR)) && statement.fetch()) {
    if (const std::optional<std::string> name = statement.text(1); name && !name->empty()) {
      return *name;
    }
  }
  return "TEXT";
}

Statement::Statement(const Connection& connection)
    : statement_(SQL_HANDLE_STMT, connection.handle().get(), connection.dialect()) {
  parameters_.reserve(kMostParameters);
}

void Statement::execute(std::string_view sql) {
  std::vector<SQLWCHAR> text = toSqlText(sql);
  const WatchedCall watched;
  const SQLRETURN result = SQLExecDirectW(statement_.get(), text.data(), SQL_NTS);
  if (result != SQL_NO_DATA) statement_.check(result);  // An update that changes no row.
}

void Statement::prepare(std::string_view sql) {
  std::vector<SQLWCHAR> text = toSqlText(sql);
  const WatchedCall watched;
  statement_.check(SQLPrepareW(statement_.get(), text.data(), SQL_NTS));
}

void Statement::executePrepared(Step step) {
  const WatchedCall watched;
  const SQLRETURN result = SQLExecute(statement_.get());
  if (result != SQL_NO_DATA) statement_.check(result, step);
  keepNote(result);
}

// Keeps what the driver reports in addition to a success, because some report a refused statement
// that way.
void Statement::keepNote(SQLRETURN result) {
  note_.reset();
  if (result == SQL_SUCCESS_WITH_INFO) note_ = statement_.diagnostic();
}

void Statement::requireChanged(std::int64_t rows, Step step) const {
  const std::int64_t changed = changedRows();
  if (changed == rows || (changed < 0 && !note_)) return;
  if (note_) fail(*note_, step);
  fail({"21S02", 0,
        "the database took " + std::to_string(changed) + " of " + std::to_string(rows) +
            " rows without a word about the others"},
       step);
}

void Statement::fail(const Diagnostic& diagnostic, Step step) const {
  throw DatabaseError(diagnostic, statement_.dialect(), step);
}

Statement::Parameter& Statement::addParameter() {
  if (parameters_.size() == kMostParameters) throw std::length_error("too many parameters");
  return parameters_.emplace_back();
}

void Statement::bindText(const std::optional<std::string>& value) {
  Parameter& parameter = addParameter();
  if (value) parameter.text = tools::toWide(*value);
  const auto bytes = static_cast<SQLLEN>(parameter.text.size() * sizeof(wchar_t));
  parameter.length = value ? bytes : SQL_NULL_DATA;
  const bool isLong = parameter.text.size() > 255;
  const SQLULEN size = parameter.text.empty() ? 1 : parameter.text.size();
  statement_.check(SQLBindParameter(statement_.get(), static_cast<SQLUSMALLINT>(parameters_.size()),
                                    SQL_PARAM_INPUT, SQL_C_WCHAR,
                                    isLong ? SQL_WLONGVARCHAR : SQL_WVARCHAR, size, 0,
                                    parameter.text.data(), bytes, &parameter.length));
}

void Statement::bindNumber(std::uint64_t value) {
  Parameter& parameter = addParameter();
  parameter.number = static_cast<SQLBIGINT>(value);
  parameter.length = sizeof parameter.number;
  statement_.check(SQLBindParameter(statement_.get(), static_cast<SQLUSMALLINT>(parameters_.size()),
                                    SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0,
                                    &parameter.number, 0, &parameter.length));
}

std::int64_t Statement::changedRows() const {
  SQLLEN rows = 0;
  statement_.check(SQLRowCount(statement_.get(), &rows));
  return rows;
}

std::vector<std::string> Statement::columnNames() const {
  SQLSMALLINT count = 0;
  statement_.check(SQLNumResultCols(statement_.get(), &count));
  std::vector<std::string> names;
  for (SQLSMALLINT column = 1; column <= count; ++column) {
    std::array<SQLWCHAR, 512> name{};
    SQLSMALLINT length = 0;
    SQLSMALLINT type = 0;
    SQLULEN size = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = 0;
    statement_.check(SQLDescribeColW(statement_.get(), static_cast<SQLUSMALLINT>(column),
                                     name.data(), static_cast<SQLSMALLINT>(name.size()), &length,
                                     &type, &size, &digits, &nullable));
    if (length < 0 || static_cast<std::size_t>(length) >= name.size()) {
      throw tools::ToolError("the name of column " + std::to_string(column) +
                             " is longer than 511 characters, or the driver says so; give the "
                             "column a shorter name");
    }
    names.push_back(fromSqlText(name.data(), static_cast<std::size_t>(length)));
  }
  return names;
}

bool Statement::fetch() {
  const WatchedCall watched;
  const SQLRETURN result = SQLFetch(statement_.get());
  if (result == SQL_NO_DATA) return false;
  statement_.check(result);
  return true;
}

std::optional<std::string> Statement::text(SQLUSMALLINT column) {
  std::wstring value;
  std::vector<SQLWCHAR> piece(std::size_t{16} * 1024);
  SQLRETURN result = SQL_SUCCESS_WITH_INFO;
  while (result == SQL_SUCCESS_WITH_INFO) {
    SQLLEN bytes = 0;
    piece.front() = 0;
    const WatchedCall watched;
    result = SQLGetData(statement_.get(), column, SQL_C_WCHAR, piece.data(),
                        static_cast<SQLLEN>(piece.size() * sizeof(SQLWCHAR)), &bytes);
    if (result == SQL_NO_DATA) break;
    statement_.check(result);
    if (bytes == SQL_NULL_DATA) return std::nullopt;
    piece.back() = 0;
    // A piece that is not the last fills the buffer except for its terminating NUL.
    const bool full =
        result == SQL_SUCCESS_WITH_INFO &&
        (bytes == SQL_NO_TOTAL || bytes >= static_cast<SQLLEN>(piece.size() * sizeof(SQLWCHAR)));
    const bool fits = bytes >= 0 && bytes < static_cast<SQLLEN>(piece.size() * sizeof(SQLWCHAR));
    if ((!full && !fits) || value.size() > kLongestText) {
      throw DatabaseError({"HY000", 0, "the driver gives a value of an impossible length"},
                          Fault::kPermanent);
    }
    value.append(reinterpret_cast<const wchar_t*>(piece.data()),
                 full ? piece.size() - 1 : static_cast<std::size_t>(bytes) / sizeof(SQLWCHAR));
  }
  return tools::toUtf8(value);
}

std::uint64_t Statement::number(SQLUSMALLINT column) {
  const std::string digits = text(column).value_or("");
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error == std::errc() && end == digits.data() + digits.size()) return value;
  throw DatabaseError({"22018", 0, "\"" + digits + "\" stands where a whole number belongs"},
                      Fault::kPermanent);
}

}  // namespace tallow::load
