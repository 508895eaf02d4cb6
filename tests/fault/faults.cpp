#include "faults.hpp"

#include <errno.h>
#include <mmsystem.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <type_traits>

#include "schedule.hpp"
#include "support/import_hook.hpp"

namespace tallow::test {
namespace {

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();
// The interface requires the wait for a writer, so the call must succeed at last to end it.
constexpr std::size_t kReadsInARow = 40;

// A replacement that calls Failure(original, arguments...) when the schedule says so.
template <auto Failure>
struct Replacement;

template <class Result, class... Arguments,
          Result (*Failure)(Result (*)(Arguments...), Arguments...)>
struct Replacement<Failure> {
  using Function = Result (*)(Arguments...);
  static inline void* original = nullptr;
  static Result call(Arguments... arguments) {
    const auto function = reinterpret_cast<Function>(original);
    if (faultSchedule().strikes()) return Failure(function, arguments...);
    return function(arguments...);
  }
};

template <auto Failure>
Fault fault(std::string function, std::string failure, FaultKind kind, std::size_t most = kAll) {
  return {std::move(function),
          std::move(failure),
          kind,
          most,
          reinterpret_cast<void*>(&Replacement<Failure>::call),
          &Replacement<Failure>::original};
}

template <class Result>
Result resultOf(std::intptr_t value) {
  if constexpr (std::is_pointer_v<Result>) {
    return reinterpret_cast<Result>(value);
  } else {
    return static_cast<Result>(value);
  }
}

// Fails with a constant result, an errno and a system error number.
template <class Signature, std::intptr_t kResult, int kErrno, DWORD kError>
struct Refusal;

template <class Result, class... Arguments, std::intptr_t kResult, int kErrno, DWORD kError>
struct Refusal<Result(Arguments...), kResult, kErrno, kError> {
  static Result call(Result (*)(Arguments...), Arguments...) {
    errno = kErrno;
    SetLastError(kError);
    return resultOf<Result>(kResult);
  }
};

template <class Signature, std::intptr_t kResult, int kErrno = ENOSPC,
          DWORD kError = ERROR_DISK_FULL>
Fault refusal(const char* function, FaultKind kind, std::size_t most = kAll) {
  return fault<&Refusal<Signature, kResult, kErrno, kError>::call>(
      function, "refuses with error " + std::to_string(kError), kind, most);
}

using ReadFileFunction = BOOL (*)(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*);

template <DWORD kError>
Fault readFileError() {
  return refusal<BOOL(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*), FALSE, EINVAL, kError>(
      "ReadFile", FaultKind::kReading, kReadsInARow);
}

BOOL readOneByte(ReadFileFunction original, HANDLE file, void* data, DWORD size, DWORD* count,
                 OVERLAPPED* overlapped) {
  return original(file, data, std::min<DWORD>(size, 1), count, overlapped);
}

BOOL readHalf(ReadFileFunction original, HANDLE file, void* data, DWORD size, DWORD* count,
              OVERLAPPED* overlapped) {
  return original(file, data, (size + 1) / 2, count, overlapped);
}

BOOL readNothing(ReadFileFunction, HANDLE, void*, DWORD, DWORD* count, OVERLAPPED*) {
  *count = 0;
  return TRUE;
}

using MoveFunction = std::size_t (*)(void*, std::size_t, std::size_t, std::FILE*);
using WriteFunction = std::size_t (*)(const void*, std::size_t, std::size_t, std::FILE*);

std::size_t readHalfOfFile(MoveFunction original, void* data, std::size_t size, std::size_t count,
                           std::FILE* file) {
  return original(data, size, count / 2, file);
}

std::size_t writeHalfOfFile(WriteFunction original, const void* data, std::size_t size,
                            std::size_t count, std::FILE* file) {
  const std::size_t written = original(data, size, count / 2, file);
  errno = ENOSPC;
  SetLastError(ERROR_DISK_FULL);
  return written;
}

// Closing always frees what it closes, whatever it returns.
int closesFileButFails(int (*original)(std::FILE*), std::FILE* file) {
  original(file);
  errno = ENOSPC;
  SetLastError(ERROR_DISK_FULL);
  return EOF;
}

template <class Handle>
BOOL closesButFails(BOOL (*original)(Handle), Handle handle) {
  original(handle);
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}

HLOCAL freesButFails(HLOCAL (*original)(HLOCAL), HLOCAL memory) {
  original(memory);
  SetLastError(ERROR_INVALID_HANDLE);
  return memory;
}

UINT endsPeriodButFails(UINT (*original)(UINT), UINT period) {
  original(period);
  return TIMERR_NOCANDO;
}

using StatFunction = int (*)(const char*, struct _stat64*);

int isDirectory(StatFunction, const char*, struct _stat64* status) {
  *status = {};
  status->st_mode = S_IFDIR;
  return 0;
}

int isPlainFile(StatFunction, const char*, struct _stat64* status) {
  *status = {};
  status->st_mode = S_IFREG;
  return 0;
}

using LoadStringFunction = int (*)(HINSTANCE, UINT, char*, int);

int stringCutShort(LoadStringFunction original, HINSTANCE library, UINT id, char* text, int size) {
  const int length = original(library, id, text, size);
  if (length == 0) return 0;
  text[1] = '\0';
  return 1;
}

using FormatMessageFunction = DWORD (*)(DWORD, const void*, DWORD, DWORD, char*, DWORD, va_list*);

std::vector<Fault> allFaults() {
  using enum FaultKind;
  using File = std::FILE;
  return {
      // The pipe.
      refusal<HANDLE(const char*, DWORD, DWORD, void*, DWORD, DWORD, HANDLE), -1, EACCES,
              ERROR_ACCESS_DENIED>("CreateFileA", kPipe),
      refusal<HANDLE(const wchar_t*, DWORD, DWORD, void*, DWORD, DWORD, HANDLE), -1, EACCES,
              ERROR_PIPE_BUSY>("CreateFileW", kPipe),
      refusal<HANDLE(const char*, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, void*), -1, EACCES,
              ERROR_PIPE_BUSY>("CreateNamedPipeA", kPipe),
      refusal<HANDLE(const wchar_t*, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD, void*), -1, EACCES,
              ERROR_NOT_ENOUGH_MEMORY>("CreateNamedPipeW", kPipe),
      refusal<BOOL(const char*, DWORD), FALSE, ENOENT, ERROR_FILE_NOT_FOUND>("WaitNamedPipeA",
                                                                             kPipe),
      refusal<BOOL(const char*, DWORD), FALSE, ENOENT, ERROR_PIPE_BUSY>("WaitNamedPipeA", kPipe),
      refusal<BOOL(const wchar_t*, DWORD), FALSE, ENOENT, ERROR_FILE_NOT_FOUND>("WaitNamedPipeW",
                                                                                kPipe),
      refusal<BOOL(const wchar_t*, DWORD), FALSE, ENOENT, ERROR_SEM_TIMEOUT>("WaitNamedPipeW",
                                                                             kPipe),
      readFileError<ERROR_SUCCESS>(),
      readFileError<ERROR_ACCESS_DENIED>(),
      readFileError<ERROR_INVALID_HANDLE>(),
      readFileError<ERROR_NOT_ENOUGH_MEMORY>(),
      readFileError<ERROR_HANDLE_EOF>(),
      readFileError<ERROR_NETNAME_DELETED>(),
      readFileError<ERROR_BROKEN_PIPE>(),
      readFileError<ERROR_NO_DATA>(),
      readFileError<ERROR_PIPE_NOT_CONNECTED>(),
      readFileError<ERROR_MORE_DATA>(),
      readFileError<ERROR_PIPE_LISTENING>(),
      readFileError<ERROR_OPERATION_ABORTED>(),
      readFileError<ERROR_IO_DEVICE>(),
      readFileError<ERROR_NO_SYSTEM_RESOURCES>(),
      readFileError<0x20000001>(),  // a number without a description
      fault<&readOneByte>("ReadFile", "reads one byte", kPipe),
      fault<&readHalf>("ReadFile", "reads half", kPipe),
      fault<&readNothing>("ReadFile", "reads nothing", kPipe),
      fault<&closesButFails<HANDLE>>("CloseHandle", "fails", kFile),
      // The fallback file, the log, the directory.
      refusal<File*(const char*, const char*, int), 0, EACCES, ERROR_SHARING_VIOLATION>("_fsopen",
                                                                                        kFile),
      refusal<File*(const char*, const char*), 0, EACCES, ERROR_ACCESS_DENIED>("fopen", kFile),
      refusal<int(File*, char*, int, std::size_t), -1, ENOMEM, ERROR_NOT_ENOUGH_MEMORY>("setvbuf",
                                                                                        kFile),
      refusal<std::size_t(void*, std::size_t, std::size_t, File*), 0, EIO, ERROR_CRC>("fread",
                                                                                      kFile),
      fault<&readHalfOfFile>("fread", "reads half", kFile),
      refusal<std::size_t(const void*, std::size_t, std::size_t, File*), 0>("fwrite", kFile),
      fault<&writeHalfOfFile>("fwrite", "writes half", kFile),
      refusal<int(File*), EOF>("fflush", kFile),
      fault<&closesFileButFails>("fclose", "fails", kFile),
      refusal<int(File*, fpos_t*), -1, EIO, ERROR_SEEK>("fgetpos", kFile),
      refusal<int(File*, const fpos_t*), -1, EIO, ERROR_SEEK>("fsetpos", kFile),
      refusal<std::int64_t(int), -1, EIO, ERROR_CRC>("_filelengthi64", kFile),
      refusal<int(File*), -1, EIO, ERROR_INVALID_HANDLE>("_fileno", kFile),
      refusal<int(const char*), -1, EACCES, ERROR_SHARING_VIOLATION>("remove", kFile),
      refusal<int(const char*, struct _stat64*), -1, EACCES, ERROR_ACCESS_DENIED>("_stat64", kAny),
      fault<&isDirectory>("_stat64", "finds a directory", kAny),
      fault<&isPlainFile>("_stat64", "finds a plain file", kAny),
      refusal<int(const char*, int), -1, EACCES, ERROR_ACCESS_DENIED>("_access", kAny),
      refusal<HANDLE(const char*, WIN32_FIND_DATAA*), -1, ENOENT, ERROR_PATH_NOT_FOUND>(
          "FindFirstFileA", kFile),
      refusal<BOOL(HANDLE, WIN32_FIND_DATAA*), FALSE, EIO, ERROR_CRC>("FindNextFileA", kFile),
      fault<&closesButFails<HANDLE>>("FindClose", "fails", kFile),
      // Memory.
      refusal<void*(std::size_t), 0, ENOMEM, ERROR_NOT_ENOUGH_MEMORY>("malloc", kAny),
      refusal<void*(std::size_t, std::size_t), 0, ENOMEM, ERROR_NOT_ENOUGH_MEMORY>("calloc", kAny),
      refusal<void*(void*, std::size_t), 0, ENOMEM, ERROR_NOT_ENOUGH_MEMORY>("realloc", kAny),
      refusal<char*(const char*), 0, ENOMEM, ERROR_NOT_ENOUGH_MEMORY>("_strdup", kAny),
      fault<&freesButFails>("LocalFree", "fails", kAny),
      // Texts.
      refusal<int(HINSTANCE, UINT, char*, int), 0, EINVAL, ERROR_RESOURCE_NAME_NOT_FOUND>(
          "LoadStringA", kAny),
      fault<&stringCutShort>("LoadStringA", "gives a damaged text", kAny),
      refusal<DWORD(DWORD, const void*, DWORD, DWORD, char*, DWORD, va_list*), 0, EINVAL,
              ERROR_MR_MID_NOT_FOUND>("FormatMessageA", kAny),
      refusal<int(char*, std::size_t, const char*, va_list), -1>("_vsnprintf", kAny),
      // The environment.
      refusal<HMODULE(const wchar_t*, HANDLE, DWORD), 0, ENOENT, ERROR_MOD_NOT_FOUND>(
          "LoadLibraryExW", kAny),
      fault<&closesButFails<HMODULE>>("FreeLibrary", "fails", kAny),
      refusal<DWORD(HMODULE, char*, DWORD), 0, EINVAL, ERROR_MOD_NOT_FOUND>("GetModuleFileNameA",
                                                                            kAny),
      refusal<DWORD(HMODULE, wchar_t*, DWORD), 0, EINVAL, ERROR_MOD_NOT_FOUND>("GetModuleFileNameW",
                                                                               kAny),
      refusal<int(LCID, LCTYPE, char*, int), 0, EINVAL, ERROR_INVALID_PARAMETER>("GetLocaleInfoA",
                                                                                 kAny),
      refusal<short(const char*, char*, WORD), -1>("GetFileTitleA", kAny),
      refusal<int(UINT, DWORD, const wchar_t*, int, char*, int, const char*, BOOL*), 0>(
          "WideCharToMultiByte", kAny),
      refusal<int(UINT, DWORD, const char*, int, wchar_t*, int), 0>("MultiByteToWideChar", kAny),
      refusal<DWORD(const char*, DWORD*), 0, ENOENT, ERROR_RESOURCE_DATA_NOT_FOUND>(
          "GetFileVersionInfoSizeA", kAny),
      refusal<BOOL(const char*, DWORD, DWORD, void*), FALSE, ENOENT, ERROR_RESOURCE_DATA_NOT_FOUND>(
          "GetFileVersionInfoA", kAny),
      refusal<BOOL(const void*, const char*, void**, UINT*), FALSE, ENOENT,
              ERROR_RESOURCE_TYPE_NOT_FOUND>("VerQueryValueA", kAny),
      refusal<char*(const char*), 0>("getenv", kAny),
      refusal<std::int64_t(std::int64_t*), -1>("_time64", kFile),
      refusal<std::tm*(const std::int64_t*), 0>("_localtime64", kFile),
      refusal<std::size_t(char*, std::size_t, const char*, const std::tm*), 0>("strftime", kFile),
      refusal<UINT(UINT), TIMERR_NOCANDO>("timeBeginPeriod", kFile),
      fault<&endsPeriodButFails>("timeEndPeriod", "fails", kFile),
  };
}

}  // namespace

const std::vector<Fault>& faults() {
  static const std::vector<Fault> all = allFaults();
  return all;
}

void installFault(HMODULE module, const Fault& fault) {
  if (!importsFunction(module, fault.function.c_str())) return;
  *fault.original = replaceImport(module, fault.function.c_str(), fault.replacement);
}

}  // namespace tallow::test
