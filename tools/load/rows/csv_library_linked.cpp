// Links libcsv where only tests and fuzzers run.
#include "load/rows/csv_library.hpp"

namespace tallow::load {

const CsvLibrary& csvLibrary() {
  static constexpr CsvLibrary kLibrary{csv_init,           csv_free,         csv_set_delim,
                                       csv_set_space_func, csv_set_blk_size, csv_parse,
                                       csv_error,          csv_fini};
  return kLibrary;
}

}  // namespace tallow::load
