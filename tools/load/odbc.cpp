#include "load/odbc.hpp"

#include <array>
#include <cctype>
#include <utility>

#include "common/text.hpp"

namespace tallow::load {
namespace {

static_assert(sizeof(SQLWCHAR) == sizeof(wchar_t));

constexpr std::size_t kMostParameters = 32;

/// SQLWCHAR is an alias of unsigned short here in all but name.
std::string fromSqlText(const SQLWCHAR* text, std::size_t length) {
  return tools::toUtf8({reinterpret_cast<const wchar_t*>(text), length});
}

SQLPOINTER attributeValue(std::uintptr_t value) {
  return reinterpret_cast<SQLPOINTER>(value);  // The interface passes integers as pointers.
}

bool succeeded(SQLRETURN result) {
  return result == SQL_SUCCESS || result == SQL_SUCCESS_WITH_INFO;
}

std::string lowerCase(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

}  // namespace

std::vector<SQLWCHAR> toSqlText(std::string_view utf8) {
  const std::wstring wide = tools::toWide(utf8);
  std::vector<SQLWCHAR> text(wide.begin(), wide.end());
  text.push_back(0);
  return text;
}

OdbcHandle::OdbcHandle(SQLSMALLINT type, SQLHANDLE parent) : type_(type) {
  if (succeeded(SQLAllocHandle(type, parent, &handle_))) return;
  throw DatabaseError({"HY001", 0, "the ODBC driver manager gives out no handle"});
}

OdbcHandle::OdbcHandle(OdbcHandle&& other) noexcept
    : type_(other.type_), handle_(std::exchange(other.handle_, nullptr)) {}

OdbcHandle& OdbcHandle::operator=(OdbcHandle&& other) noexcept {
  std::swap(type_, other.type_);
  std::swap(handle_, other.handle_);
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
  const auto shown = std::min<std::size_t>(static_cast<std::size_t>(length), text.size() - 1);
  return {fromSqlText(state.data(), state.size() - 1), native, fromSqlText(text.data(), shown)};
}

void OdbcHandle::check(SQLRETURN result, Step step) const {
  if (!succeeded(result)) throw DatabaseError(diagnostic(), step);
}

Connection::Connection(const std::string& connectionString)
    : environment_(SQL_HANDLE_ENV, nullptr) {
  environment_.check(SQLSetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                                   attributeValue(SQL_OV_ODBC3), SQL_IS_UINTEGER));
  connection_ = OdbcHandle(SQL_HANDLE_DBC, environment_.get());
  std::vector<SQLWCHAR> text = toSqlText(connectionString);
  connection_.check(SQLDriverConnectW(connection_.get(), nullptr, text.data(), SQL_NTS, nullptr, 0,
                                      nullptr, SQL_DRIVER_NOPROMPT));
  connected_ = true;
  try {
    const bool sqlite = lowerCase(information(SQL_DBMS_NAME)).find("sqlite") != std::string::npos;
    dialect_ = sqlite ? Dialect::kSqlite : Dialect::kStandard;
    quote_ = information(SQL_IDENTIFIER_QUOTE_CHAR);
    textType_ = longTextType();
    connection_.check(SQLSetConnectAttrW(connection_.get(), SQL_ATTR_AUTOCOMMIT,
                                         attributeValue(SQL_AUTOCOMMIT_OFF), SQL_IS_UINTEGER));
  } catch (...) {
    SQLDisconnect(connection_.get());
    throw;
  }
}

Connection::~Connection() {
  SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_ROLLBACK);
  SQLDisconnect(connection_.get());
}

void Connection::commit() {
  connection_.check(SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_COMMIT));
  // A driver that has noticed the break before sees no transaction to commit, and answers success.
  if (isDead()) throw DatabaseError({"08S01", 0, "the connection broke before the commit"});
}

void Connection::rollback() {
  connection_.check(SQLEndTran(SQL_HANDLE_DBC, connection_.get(), SQL_ROLLBACK));
}

bool Connection::isDead() const {
  SQLUINTEGER dead = SQL_CD_FALSE;
  const SQLRETURN result = SQLGetConnectAttrW(connection_.get(), SQL_ATTR_CONNECTION_DEAD, &dead,
                                              SQL_IS_UINTEGER, nullptr);
  return succeeded(result) && dead == SQL_CD_TRUE;
}

std::string Connection::information(SQLUSMALLINT what) const {
  std::array<SQLWCHAR, 256> text{};
  SQLSMALLINT bytes = 0;
  connection_.check(SQLGetInfoW(connection_.get(), what, text.data(),
                                static_cast<SQLSMALLINT>(sizeof text), &bytes));
  std::size_t length = 0;
  while (length < text.size() && text[length] != 0) ++length;
  return fromSqlText(text.data(), length);
}

std::string Connection::longTextType() const {
  Statement statement(*this);
  if (succeeded(SQLGetTypeInfoW(statement.handle().get(), SQL_LONGVARCHAR)) && statement.fetch()) {
    if (const std::optional<std::string> name = statement.text(1); name && !name->empty()) {
      return *name;
    }
  }
  return "TEXT";
}

Statement::Statement(const Connection& connection)
    : statement_(SQL_HANDLE_STMT, connection.handle().get()) {
  parameters_.reserve(kMostParameters);
}

void Statement::execute(std::string_view sql) {
  std::vector<SQLWCHAR> text = toSqlText(sql);
  const SQLRETURN result = SQLExecDirectW(statement_.get(), text.data(), SQL_NTS);
  if (result != SQL_NO_DATA) statement_.check(result);  // An update that changes no row.
}

void Statement::prepare(std::string_view sql) {
  std::vector<SQLWCHAR> text = toSqlText(sql);
  statement_.check(SQLPrepareW(statement_.get(), text.data(), SQL_NTS));
}

void Statement::executePrepared(Step step) {
  const SQLRETURN result = SQLExecute(statement_.get());
  if (result != SQL_NO_DATA) statement_.check(result, step);
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
    names.push_back(fromSqlText(name.data(), static_cast<std::size_t>(length)));
  }
  return names;
}

bool Statement::fetch() {
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
    result = SQLGetData(statement_.get(), column, SQL_C_WCHAR, piece.data(),
                        static_cast<SQLLEN>(piece.size() * sizeof(SQLWCHAR)), &bytes);
    if (result == SQL_NO_DATA) break;
    statement_.check(result);
    if (bytes == SQL_NULL_DATA) return std::nullopt;
    // A piece that is not the last fills the buffer but for its end mark.
    const bool full =
        bytes == SQL_NO_TOTAL || static_cast<std::size_t>(bytes) >= piece.size() * sizeof(SQLWCHAR);
    value.append(reinterpret_cast<const wchar_t*>(piece.data()),
                 full ? piece.size() - 1 : static_cast<std::size_t>(bytes) / sizeof(SQLWCHAR));
  }
  return tools::toUtf8(value);
}

std::uint64_t Statement::number(SQLUSMALLINT column) {
  const std::optional<std::string> digits = text(column);
  return digits ? std::stoull(*digits) : 0;
}

}  // namespace tallow::load
