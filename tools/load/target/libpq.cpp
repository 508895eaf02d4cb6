#include "load/target/libpq.hpp"

#include <windows.h>

#include <bit>
#include <filesystem>

#include "common/beside_program.hpp"
#include "common/portable_executable.hpp"
#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

constexpr const char* kRemedy =
    "; install PostgreSQL's 64-bit client and name its library with --libpq FILE or TALLOW_LIBPQ, "
    "for example \"C:\\Program Files\\PostgreSQL\\17\\bin\\libpq.dll\", or give --to the string of "
    "an ODBC driver";

std::filesystem::path find(const std::string& file) {
  std::filesystem::path path = tools::besideProgram(L"libpq.dll");
  std::error_code error;
  if (std::filesystem::exists(path, error)) return path;
  if (file.empty()) {
    throw tools::MisuseError(
        std::string("PostgreSQL's client library, libpq.dll, is not beside this program, and "
                    "nothing says where it is") +
        kRemedy);
  }
  return std::filesystem::absolute(tools::toWide(file)).make_preferred();
}

template <typename Function>
void take(Function& function, HMODULE library, const char* name, const std::string& path) {
  const FARPROC symbol = GetProcAddress(library, name);
  if (symbol == nullptr) {
    throw tools::MisuseError(path + " is another or too old a library (it exports no " + name +
                             ")" + kRemedy);
  }
  function = std::bit_cast<Function>(symbol);
}

// Stays loaded until the process ends. What the library needs itself is looked for beside it.
LibPq loadLibrary(const std::string& file) {
  const std::filesystem::path path = find(file);
  const std::string name = tools::toUtf8(path.wstring());
  if (const std::string fault = tools::libraryFault(path); !fault.empty()) {
    throw tools::MisuseError(name + " " + fault + kRemedy);
  }
  const HMODULE library = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (library == nullptr) {
    throw tools::MisuseError(name + " cannot be loaded: " + tools::systemErrorText(GetLastError()) +
                             kRemedy);
  }
  LibPq table{};
  take(table.connectdbParams, library, "PQconnectdbParams", name);
  take(table.conninfoParse, library, "PQconninfoParse", name);
  take(table.conninfoFree, library, "PQconninfoFree", name);
  take(table.freemem, library, "PQfreemem", name);
  take(table.status, library, "PQstatus", name);
  take(table.transactionStatus, library, "PQtransactionStatus", name);
  take(table.serverVersion, library, "PQserverVersion", name);
  take(table.errorMessage, library, "PQerrorMessage", name);
  take(table.finish, library, "PQfinish", name);
  take(table.setNoticeReceiver, library, "PQsetNoticeReceiver", name);
  take(table.exec, library, "PQexec", name);
  take(table.execParams, library, "PQexecParams", name);
  take(table.putCopyData, library, "PQputCopyData", name);
  take(table.putCopyEnd, library, "PQputCopyEnd", name);
  take(table.getResult, library, "PQgetResult", name);
  take(table.resultStatus, library, "PQresultStatus", name);
  take(table.resultErrorField, library, "PQresultErrorField", name);
  take(table.cmdStatus, library, "PQcmdStatus", name);
  take(table.cmdTuples, library, "PQcmdTuples", name);
  take(table.ntuples, library, "PQntuples", name);
  take(table.nfields, library, "PQnfields", name);
  take(table.fname, library, "PQfname", name);
  take(table.getvalue, library, "PQgetvalue", name);
  take(table.getlength, library, "PQgetlength", name);
  take(table.getisnull, library, "PQgetisnull", name);
  take(table.clear, library, "PQclear", name);
  return table;
}

}  // namespace

const LibPq& libpq(const std::string& file) {
  static const LibPq kLibrary = loadLibrary(file);
  return kLibrary;
}

}  // namespace tallow::load
