// What the database stores about a job: one row of the table tallow_checkpoint.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tallow::load {

// What must be the same at a restart, or the bytes would mean something else, and which rejects
// file belongs to the job.
struct JobSettings {
  std::string pipe;
  std::string table;
  char delimiter = ',';
  std::optional<std::string> nullText;
  std::string init;
  std::string rejectsFile = {};  // full path; empty if there is none

  bool operator==(const JobSettings&) const = default;
};

enum class Header {
  kNone,  // the data has none
  kDue,   // the first row is the header
  kRead,
};

// How far a job is: everything that one transaction commits together with the rows.
struct JobProgress {
  std::uint64_t position = 0;  // block number
  std::string unfinishedRow;   // bytes of the row that continues after the position
  std::uint64_t rows = 0;      // in the table
  std::uint64_t rejects = 0;
  std::uint64_t lines = 0;          // line breaks before the unfinished row
  std::uint64_t bytes = 0;          // of the data up to the position, including the unfinished row
  std::uint64_t rejectsLength = 0;  // bytes of the rejects file
  std::uint64_t reasonsLength = 0;  // bytes of the reasons file beside it
  Header header = Header::kNone;
  std::vector<std::string> columns;  // in use; empty while they are not known
  bool done = false;

  bool operator==(const JobProgress&) const = default;
};

struct JobRecord {
  JobSettings settings;
  JobProgress progress;
  std::uint64_t commitNumber = 0;
};

std::string toHex(std::string_view bytes);
// None if the text is not pairs of hexadecimal digits.
std::optional<std::string> fromHex(std::string_view text);

// Column names as one text, for the record, and back. None if the text is not such a list.
std::string joinColumns(const std::vector<std::string>& columns);
std::optional<std::vector<std::string>> splitColumns(const std::string& text);

// "none", "due", "read", and back.
std::string_view headerName(Header header);
std::optional<Header> headerFromName(std::string_view name);

// Empty if the settings agree, else the first difference: "the pipe was X and is now Y".
std::string differenceOf(const JobSettings& recorded, const JobSettings& now);

}  // namespace tallow::load
