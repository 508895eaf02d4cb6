// The library is loaded and not linked, because a program that the system cannot start for lack of
// a library prints nothing.
#include "load/rows/csv_library.hpp"

#include <windows.h>

#include <bit>
#include <string>

#include "common/beside_program.hpp"
#include "common/portable_executable.hpp"
#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

constexpr const char* kRemedy = "; put the csv.dll of this release there";

template <typename Function>
void find(Function& function, HMODULE library, const char* name, const std::string& path) {
  const FARPROC symbol = GetProcAddress(library, name);
  if (symbol == nullptr) {
    throw tools::MisuseError(path + " is another library (it exports no " + name + ")" + kRemedy);
  }
  function = std::bit_cast<Function>(symbol);
}

// Stays loaded until the process ends.
CsvLibrary loadLibrary() {
  const std::filesystem::path path = tools::besideProgram(L"csv.dll");
  const std::string name = tools::toUtf8(path.wstring());
  if (const std::string fault = tools::libraryFault(path); !fault.empty()) {
    throw tools::MisuseError(name + " " + fault + kRemedy);
  }
  const HMODULE library = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (library == nullptr) {
    throw tools::MisuseError(name + " cannot be loaded: " + tools::systemErrorText(GetLastError()) +
                             kRemedy);
  }
  CsvLibrary table{};
  find(table.init, library, "csv_init", name);
  find(table.release, library, "csv_free", name);
  find(table.setDelimiter, library, "csv_set_delim", name);
  find(table.setSpaceTest, library, "csv_set_space_func", name);
  find(table.setStep, library, "csv_set_blk_size", name);
  find(table.parse, library, "csv_parse", name);
  find(table.error, library, "csv_error", name);
  find(table.finish, library, "csv_fini", name);
  return table;
}

}  // namespace

const CsvLibrary& csvLibrary() {
  static const CsvLibrary kLibrary = loadLibrary();
  return kLibrary;
}

}  // namespace tallow::load
