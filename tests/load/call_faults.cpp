// Loaded into tallow-load from outside. Counts its calls of the module and its calls that reach the
// database (COUNTED_FUNCTIONS, libpq's COUNTED_ENTRIES, and the commit), and makes one of them
// fail. It patches the program's import table, also GetProcAddress, through which the program finds
// the module and libpq. So the program under test is the one that ships.
//
// TALLOW_FAULT in the environment says what to do:
//   count              nothing; at the end the numbers of calls and of commits are written to the
//                      file TALLOW_FAULT_REPORT
//   die N              the process dies before its N-th call
//   commit-lost N M    M commits from the N-th on are carried out and answered by a lost connection
//   commit-undone N M  the same, but they are rolled back
//   long-name          the driver says that a column's name is longer than the room for it
//
// SQLite's own library is a part of the program. There the calls of the system count that open,
// lock or change a database's files (*.sqlite, *.sqlite-journal), and the removal of a journal is
// the commit.
#include <windows.h>
// sql.h needs windows.h before it.
#include <sql.h>
#include <sqlext.h>

#include <tallow/tallow.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <set>
#include <string>

#include "load/target/libpq.hpp"

namespace {

constexpr UINT kKilled = 137;

struct Plan {
  bool counts = false;
  unsigned long dieAt = 0;
  unsigned long firstCommit = 0;
  unsigned long lastCommit = 0;
  bool carriesOut = false;
  bool longName = false;
};

Plan plan;
std::string reportPath;
std::atomic<unsigned long> calls = 0;  // the module has its own thread
unsigned long commits = 0;
bool answersLost = false;  // the next diagnostic is a lost connection

TallowPIDMMain realPidmMain = nullptr;
decltype(&GetProcAddress) realGetProcAddress = nullptr;
decltype(&SQLEndTran) realEndTran = nullptr;
decltype(&SQLGetDiagRecW) realGetDiagRec = nullptr;
decltype(&SQLDescribeColW) realDescribeCol = nullptr;

std::string environment(const char* name) {
  std::array<char, 1024> value{};
  GetEnvironmentVariableA(name, value.data(), static_cast<DWORD>(value.size()));
  return value.data();
}

void writeReport() {
  if (std::FILE* file = std::fopen(reportPath.c_str(), "wb")) {
    std::fprintf(file, "%lu %lu\n", calls.load(), commits);
    std::fclose(file);
  }
}

// Every counted call comes here first.
void count() {
  if (++calls == plan.dieAt) TerminateProcess(GetCurrentProcess(), kKilled);
}

template <auto slot>
struct Counted;

// Replaces a function of any signature: counts the call and then makes it.
template <typename Result, typename... Arguments, Result(WINAPI** slot)(Arguments...)>
struct Counted<slot> {
  static Result WINAPI call(Arguments... arguments) {
    count();
    return (*slot)(arguments...);
  }
};

#define COUNTED_FUNCTIONS(X) \
  X(SQLDriverConnectW)       \
  X(SQLDisconnect)           \
  X(SQLExecDirectW)          \
  X(SQLExecute) X(SQLPrepareW) X(SQLFetch) X(SQLRowCount) X(SQLSetConnectAttrW) X(SQLGetTypeInfoW)

#define DECLARE_REAL(name) decltype(&name) real_##name = nullptr;
COUNTED_FUNCTIONS(DECLARE_REAL)

SQLRETURN WINAPI endTran(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT completion) {
  count();
  if (completion != SQL_COMMIT) return realEndTran(type, handle, completion);
  ++commits;
  if (commits < plan.firstCommit || commits > plan.lastCommit) {
    return realEndTran(type, handle, completion);
  }
  realEndTran(type, handle, plan.carriesOut ? SQL_COMMIT : SQL_ROLLBACK);
  answersLost = true;
  return SQL_ERROR;
}

SQLRETURN WINAPI getDiagRec(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT record, SQLWCHAR* state,
                            SQLINTEGER* native, SQLWCHAR* text, SQLSMALLINT room,
                            SQLSMALLINT* length) {
  if (!answersLost) return realGetDiagRec(type, handle, record, state, native, text, room, length);
  answersLost = false;
  constexpr wchar_t kState[] = L"08S01";
  constexpr wchar_t kText[] = L"the answer was lost";
  std::memcpy(state, kState, sizeof kState);
  std::memcpy(text, kText, sizeof kText);
  *native = 0;
  *length = static_cast<SQLSMALLINT>(std::size(kText) - 1);
  return SQL_SUCCESS;
}

SQLRETURN WINAPI describeCol(SQLHSTMT statement, SQLUSMALLINT column, SQLWCHAR* name,
                             SQLSMALLINT room, SQLSMALLINT* length, SQLSMALLINT* type,
                             SQLULEN* size, SQLSMALLINT* digits, SQLSMALLINT* nullable) {
  const SQLRETURN result =
      realDescribeCol(statement, column, name, room, length, type, size, digits, nullable);
  if (!plan.longName) return result;
  *length = 32767;
  return SQL_SUCCESS_WITH_INFO;
}

void pidmMain(TallowRequestBlock* request, void* parameters) {
  count();
  realPidmMain(request, parameters);
}

// libpq's functions that talk to the server, but for PQexec.
#define COUNTED_ENTRIES(X)              \
  X(PQconnectdbParams, connectdbParams) \
  X(PQfinish, finish)                   \
  X(PQexecParams, execParams)           \
  X(PQputCopyData, putCopyData)         \
  X(PQputCopyEnd, putCopyEnd)           \
  X(PQgetResult, getResult)

tallow::load::LibPq realPq{};

template <auto member>
struct CountedEntry;

template <typename Result, typename... Arguments,
          Result (*tallow::load::LibPq::*member)(Arguments...)>
struct CountedEntry<member> {
  static Result call(Arguments... arguments) {
    count();
    return (realPq.*member)(arguments...);
  }
};

// A commit whose answer is lost has no result.
pg_result* pqExec(pg_conn* connection, const char* sql) {
  count();
  if (std::strcmp(sql, "COMMIT") != 0) return realPq.exec(connection, sql);
  ++commits;
  if (commits < plan.firstCommit || commits > plan.lastCommit) {
    return realPq.exec(connection, sql);
  }
  realPq.exec(connection, plan.carriesOut ? "COMMIT" : "ROLLBACK");
  return nullptr;
}

template <typename Function>
FARPROC replaceEntry(FARPROC found, Function*& real, Function* replacement) {
  real = std::bit_cast<Function*>(found);
  return std::bit_cast<FARPROC>(replacement);
}

FARPROC WINAPI getProcAddress(HMODULE module, LPCSTR name) {
  const FARPROC found = realGetProcAddress(module, name);
  if (found == nullptr || reinterpret_cast<std::uintptr_t>(name) < 0x10000) return found;
  const std::string entry = name;
  if (entry == "PIDMMain") {
    realPidmMain = std::bit_cast<TallowPIDMMain>(found);
    return std::bit_cast<FARPROC>(&pidmMain);
  }
#define REPLACE_ENTRY(symbol, member)                                                             \
  if (entry == #symbol) {                                                                         \
    return replaceEntry(found, realPq.member, &CountedEntry<&tallow::load::LibPq::member>::call); \
  }
  COUNTED_ENTRIES(REPLACE_ENTRY)
#undef REPLACE_ENTRY
  return entry == "PQexec" ? replaceEntry(found, realPq.exec, &pqExec) : found;
}

// The files that SQLite has open.
std::mutex filesLock;
std::set<HANDLE> files;

bool isOurs(HANDLE file) {
  const std::lock_guard guard(filesLock);
  return files.contains(file);
}

bool isOurs(LPCWSTR name) {
  return std::wcsstr(name, L".sqlite") != nullptr;
}

decltype(&CreateFileW) realCreateFile = nullptr;
decltype(&CloseHandle) realCloseHandle = nullptr;
decltype(&DeleteFileW) realDeleteFile = nullptr;

HANDLE WINAPI createFile(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                         DWORD disposition, DWORD flags, HANDLE pattern) {
  if (isOurs(name)) count();
  HANDLE file = realCreateFile(name, access, share, security, disposition, flags, pattern);
  const DWORD error = GetLastError();
  if (isOurs(name) && file != INVALID_HANDLE_VALUE) {
    const std::lock_guard guard(filesLock);
    files.insert(file);
  }
  SetLastError(error);
  return file;
}

BOOL WINAPI closeHandle(HANDLE handle) {
  {
    const std::lock_guard guard(filesLock);
    files.erase(handle);
  }
  return realCloseHandle(handle);
}

BOOL WINAPI deleteFile(LPCWSTR name) {
  if (!isOurs(name)) return realDeleteFile(name);
  count();
  ++commits;
  if (commits < plan.firstCommit || commits > plan.lastCommit) return realDeleteFile(name);
  if (plan.carriesOut) realDeleteFile(name);
  SetLastError(ERROR_IO_DEVICE);
  return FALSE;
}

template <auto slot>
struct CountedOnFile;

// Replaces a function whose first argument is a file.
template <typename... Arguments, BOOL(WINAPI** slot)(HANDLE, Arguments...)>
struct CountedOnFile<slot> {
  static BOOL WINAPI call(HANDLE file, Arguments... arguments) {
    if (isOurs(file)) count();
    return (*slot)(file, arguments...);
  }
};

#define COUNTED_ON_FILES(X) \
  X(WriteFile) X(FlushFileBuffers) X(SetEndOfFile) X(LockFileEx) X(UnlockFileEx)

COUNTED_ON_FILES(DECLARE_REAL)
#undef DECLARE_REAL

void readPlan() {
  const std::string text = environment("TALLOW_FAULT");
  reportPath = environment("TALLOW_FAULT_REPORT");
  std::array<char, 32> kind{};
  unsigned long first = 0;
  unsigned long amount = 0;
  std::sscanf(text.c_str(), "%31s %lu %lu", kind.data(), &first, &amount);
  const std::string name = kind.data();
  plan.counts = name == "count";
  plan.longName = name == "long-name";
  if (name == "die") plan.dieAt = first;
  if (name == "commit-lost" || name == "commit-undone") {
    plan.firstCommit = first;
    plan.lastCommit = first + amount - 1;
    plan.carriesOut = name == "commit-lost";
  }
}

struct Replacement {
  const char* name;
  void* function;
  void** real;
};

template <typename Function>
Replacement replacement(const char* name, Function* function, Function** real) {
  return {name, reinterpret_cast<void*>(function), reinterpret_cast<void**>(real)};
}

void patchSlot(void** slot, const Replacement& item) {
  *item.real = *slot;
  DWORD protection = 0;
  VirtualProtect(static_cast<void*>(slot), sizeof *slot, PAGE_READWRITE, &protection);
  *slot = item.function;
  VirtualProtect(static_cast<void*>(slot), sizeof *slot, protection, &protection);
}

// Replaces the program's imports. A name that it does not import is left alone.
void patchImports(const Replacement* items, std::size_t amount) {
  auto* base = reinterpret_cast<std::uint8_t*>(GetModuleHandleW(nullptr));
  const auto* dos = reinterpret_cast<IMAGE_DOS_HEADER*>(base);
  const auto* header = reinterpret_cast<IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const DWORD offset =
      header->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (auto* library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + offset);
       library->Name != 0; ++library) {
    auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* import = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      const auto* imported = reinterpret_cast<const char*>(import->Name);
      for (std::size_t i = 0; i < amount; ++i) {
        if (std::strcmp(imported, items[i].name) == 0) {
          patchSlot(reinterpret_cast<void**>(&slot->u1.Function), items[i]);
        }
      }
    }
  }
}

void patchFiles() {
#define REPLACE(name) replacement(#name, &CountedOnFile<&real_##name>::call, &real_##name),
  const std::array items = {COUNTED_ON_FILES(REPLACE)
                                replacement("CreateFileW", &createFile, &realCreateFile),
                            replacement("CloseHandle", &closeHandle, &realCloseHandle),
                            replacement("DeleteFileW", &deleteFile, &realDeleteFile)};
#undef REPLACE
  patchImports(items.data(), items.size());
}

void patchProgram() {
#define REPLACE(name) replacement(#name, &Counted<&real_##name>::call, &real_##name),
  const std::array items = {COUNTED_FUNCTIONS(REPLACE)
                                replacement("SQLEndTran", &endTran, &realEndTran),
                            replacement("SQLGetDiagRecW", &getDiagRec, &realGetDiagRec),
                            replacement("SQLDescribeColW", &describeCol, &realDescribeCol),
                            replacement("GetProcAddress", &getProcAddress, &realGetProcAddress)};
#undef REPLACE
  patchImports(items.data(), items.size());
}

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD reason, void* /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    readPlan();
    patchProgram();
    patchFiles();
  }
  if (reason == DLL_PROCESS_DETACH && plan.counts) writeReport();
  return TRUE;
}
