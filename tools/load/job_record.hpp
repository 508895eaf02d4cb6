// What the database keeps of a job: one row of the table tallow_checkpoint.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallow::load {

/// What must be the same at a restart, or the bytes would mean something else; and which rejects
/// file is the job's own.
struct JobSettings {
  std::string pipe;
  std::string table;
  char delimiter = ',';
  std::optional<std::string> nullText;
  std::string init;
  std::string rejectsFile = {};  // full path; empty while there is none

  bool operator==(const JobSettings&) const = default;
};

enum class Header {
  kNone,  // the data has none
  kDue,   // the first row will be it
  kRead,
};

/// How far a job is: all that one transaction commits together with the rows.
struct JobProgress {
  std::uint64_t position = 0;  // block number
  std::string unfinishedRow;   // bytes of the row that the position cuts
  std::uint64_t rows = 0;      // in the table
  std::uint64_t rejects = 0;
  std::uint64_t lines = 0;          // line breaks before the unfinished row
  std::uint64_t bytes = 0;          // of the data up to the position, the unfinished row included
  std::uint64_t rejectsLength = 0;  // bytes of the rejects file
  std::uint64_t reasonsLength = 0;  // bytes of the file beside it
  Header header = Header::kNone;
  std::vector<std::string> columns;  // in force; empty while they are not known
  bool done = false;

  bool operator==(const JobProgress&) const = default;
};

struct JobRecord {
  JobSettings settings;
  JobProgress progress;
  std::uint64_t commitNumber = 0;
};

std::string toHex(std::string_view bytes);
/// Nothing when the text is not pairs of hexadecimal digits.
std::optional<std::string> fromHex(std::string_view text);

/// Column names as one text, for the record, and back; nothing when the text is not such a list.
std::string joinColumns(const std::vector<std::string>& columns);
std::optional<std::vector<std::string>> splitColumns(const std::string& text);

/// "none", "due", "read", and back.
std::string_view headerName(Header header);
std::optional<Header> headerFromName(std::string_view name);

/// Empty when the settings agree; else the first difference, as "the pipe was X and is now Y".
std::string differenceOf(const JobSettings& recorded, const JobSettings& now);

}  // namespace tallow::load
