// Calls PostgreSQL's client library through a table of the functions that are used. The names,
// types and numbers are those of its documented interface. Nothing of it is needed to build this
// program.
#pragma once

#include <string>

// The library's own names for what it hands out.
struct pg_conn;
struct pg_result;

namespace tallow::load {

// What the library's functions return and take.
namespace pq {

constexpr int kConnectionOk = 0;

constexpr int kCommandOk = 1;
constexpr int kTuplesOk = 2;
constexpr int kCopyIn = 4;

constexpr int kTransactionIdle = 0;

constexpr int kSqlState = 'C';
constexpr int kPrimaryMessage = 'M';
constexpr int kDetail = 'D';
constexpr int kHint = 'H';
constexpr int kContext = 'W';

// A parameter of a connection. The last of a list has no keyword.
struct ConnectionOption {
  char* keyword;
  char* environmentVariable;
  char* builtIn;
  char* value;  // null if it is not set
  char* label;
  char* display;
  int displaySize;
};

using NoticeReceiver = void (*)(void* context, const pg_result* notice);

}  // namespace pq

struct LibPq {
  pg_conn* (*connectdbParams)(const char* const* keywords, const char* const* values,
                              int expandDbname);
  pq::ConnectionOption* (*conninfoParse)(const char* conninfo, char** error);
  void (*conninfoFree)(pq::ConnectionOption* options);
  void (*freemem)(void* memory);
  int (*status)(const pg_conn* connection);
  int (*transactionStatus)(const pg_conn* connection);
  int (*serverVersion)(const pg_conn* connection);
  char* (*errorMessage)(const pg_conn* connection);
  void (*finish)(pg_conn* connection);
  pq::NoticeReceiver (*setNoticeReceiver)(pg_conn* connection, pq::NoticeReceiver receiver,
                                          void* context);
  pg_result* (*exec)(pg_conn* connection, const char* sql);
  pg_result* (*execParams)(pg_conn* connection, const char* sql, int count, const unsigned* types,
                           const char* const* values, const int* lengths, const int* formats,
                           int resultFormat);
  int (*putCopyData)(pg_conn* connection, const char* bytes, int length);
  int (*putCopyEnd)(pg_conn* connection, const char* error);
  pg_result* (*getResult)(pg_conn* connection);
  int (*resultStatus)(const pg_result* result);
  char* (*resultErrorField)(const pg_result* result, int field);
  char* (*cmdStatus)(pg_result* result);
  char* (*cmdTuples)(pg_result* result);
  int (*ntuples)(const pg_result* result);
  int (*nfields)(const pg_result* result);
  char* (*fname)(const pg_result* result, int column);
  char* (*getvalue)(const pg_result* result, int row, int column);
  int (*getlength)(const pg_result* result, int row, int column);
  int (*getisnull)(const pg_result* result, int row, int column);
  void (*clear)(pg_result* result);
};

// The same table for the whole process. It belongs to the libpq.dll in the program's own folder,
// or, if there is none, to `file` (UTF-8; empty if nobody named one). Only the first call looks for
// it. Throws MisuseError with what to do if it cannot be loaded.
const LibPq& libpq(const std::string& file);

}  // namespace tallow::load
