// Calls libcsv through a table of the functions that are used.
#pragma once

#include <csv.h>

namespace tallow::load {

struct CsvLibrary {
  decltype(&csv_init) init;
  decltype(&csv_free) release;
  decltype(&csv_set_delim) setDelimiter;
  decltype(&csv_set_space_func) setSpaceTest;
  decltype(&csv_set_blk_size) setStep;
  decltype(&csv_parse) parse;
  decltype(&csv_error) error;
  decltype(&csv_fini) finish;
};

// The same table for the whole process. On Windows it belongs to the csv.dll in the program's own
// folder. Throws MisuseError if that cannot be loaded.
const CsvLibrary& csvLibrary();

}  // namespace tallow::load
