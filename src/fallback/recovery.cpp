#include "fallback/recovery.hpp"

#include <windows.h>

#include <cstdlib>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "fallback/fallback_name.hpp"

namespace tallow::fallback {
namespace {

using diag::log;
using diag::LogLevel;

// Why a file is examined. A refusal is an error only for a file that the user named.
enum class Candidate { kExplicit, kFound };

// The entries of a directory that match a pattern, one at a time.
class DirectorySearch {
 public:
  explicit DirectorySearch(const std::string& pattern)
      : handle_(FindFirstFileA(pattern.c_str(), &entry_)),
        found_(handle_ != INVALID_HANDLE_VALUE) {}
  ~DirectorySearch() {
    if (handle_ != INVALID_HANDLE_VALUE) FindClose(handle_);
  }
  DirectorySearch(const DirectorySearch&) = delete;
  DirectorySearch& operator=(const DirectorySearch&) = delete;

  explicit operator bool() const noexcept { return found_; }
  const WIN32_FIND_DATAA& entry() const noexcept { return entry_; }
  void next() noexcept { found_ = FindNextFileA(handle_, &entry_) != FALSE; }

 private:
  WIN32_FIND_DATAA entry_ = {};
  HANDLE handle_;
  bool found_;
};

std::string directoryInForce(const config::OptionsRecord& options) {
  if (!options.fallbackDirectory.empty()) return options.fallbackDirectory;
  if (const char* temp = std::getenv("TEMP")) return temp;
  if (const char* windows = std::getenv("WINDIR")) return std::string(windows) + "\\temp";
  return "c:\\";
}

// Applies the acceptance rule and logs a refusal with what was expected.
bool acceptHeader(HeaderImage& read, const HeaderImage& wanted, Candidate candidate) {
  constexpr LogLevel kDetail = LogLevel::kOption;
  const LogLevel level = candidate == Candidate::kExplicit ? LogLevel::kError : LogLevel::kOption;
  switch (judgeHeader(read, wanted.pipeName, wanted.blockSize)) {
    case HeaderVerdict::kAccepted:
      return true;
    case HeaderVerdict::kTextDiffers:
      diag::logMessage<MessageId::kHeaderTextDiffers>(level);
      log(kDetail, MessageId::kTrace, "Expected: \"%s\"; got \"%s\"", kHeaderText, read.headerText);
      return false;
    case HeaderVerdict::kPipeNameDiffers:
      diag::logMessage<MessageId::kPipeNameDiffers>(level);
      log(kDetail, MessageId::kTrace, "Expected: \"%s\"; got \"%s\"", wanted.pipeName,
          read.pipeName);
      return false;
    case HeaderVerdict::kBlockSizeDiffers:
      diag::logMessage<MessageId::kBlockSizeDiffers>(level);
      log(kDetail, MessageId::kTrace, "Expected: %d; got %d", static_cast<int>(wanted.blockSize),
          static_cast<int>(read.blockSize));
      return false;
  }
  return false;
}

// Reads the header and the sync area. If they are this job's, all that was read goes into recovery.
bool validate(Recovery& recovery, FileStream stream, const std::string& name, Candidate candidate,
              const HeaderImage& wanted) {
  if (candidate == Candidate::kFound) {
    log(LogLevel::kTrace, MessageId::kTrace, "Validating fallback file \"%s\".", name.c_str());
  }
  HeaderImage read = {};
  if (stream.read(&read, sizeof read) != sizeof read) return false;
  if (!acceptHeader(read, wanted, candidate)) return false;
  // If the sync area is cut short, what was read of it remains. The next write of the area replaces
  // it.
  SyncPoints& points = recovery.syncPoints;
  if (stream.read(&points, sizeof points) != sizeof points) return false;
  log(LogLevel::kTrace, MessageId::kTrace, "Validated fallback file \"%s\" for recovery.",
      name.c_str());
  recovery.name = name;
  recovery.stream = std::move(stream);
  recovery.header = read;
  return true;
}

// Takes a file if it can be opened and is this job's.
bool take(Recovery& recovery, const std::string& name, Candidate candidate,
          const HeaderImage& wanted) {
  FileStream stream = FileStream::open(name, "r+b");
  if (!stream) return false;
  if (validate(recovery, std::move(stream), name, candidate, wanted)) return true;
  diag::logMessage<MessageId::kFallbackFileUnusable>(
      candidate == Candidate::kExplicit ? LogLevel::kError : LogLevel::kTrace, name.c_str());
  return false;
}

// The file that the user named.
Recovery recoverExplicit(const HeaderImage& wanted, const std::string& name) {
  Recovery recovery;
  take(recovery, name, Candidate::kExplicit, wanted);
  recovery.name = name;
  recovery.mayBeCreated = true;
  return recovery;
}

// Tries every file that matches directory\stem*.fbf in the order of the directory. The interface
// requires that a candidate is opened by its bare name, so only in the working directory.
Recovery recoverFound(const HeaderImage& wanted, const std::string& directory) {
  Recovery recovery;
  const std::string stem = nameStem(wanted.pipeName);
  unsigned numberedNames = 0;
  DirectorySearch search(directory + "\\" + stem + "*" + std::string(kExtension));
  for (; search; search.next()) {
    const WIN32_FIND_DATAA& entry = search.entry();
    if (isNumberedName(entry.cFileName, stem)) ++numberedNames;
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    if (take(recovery, entry.cFileName, Candidate::kFound, wanted)) return recovery;
  }
  // The interface requires the last of the numbered names, always. To try all 65,536 names in turn
  // would only show whether one of them is free, and the search has just seen all that exist.
  recovery.name = directory + "\\" + numberedName(stem, kNumberedNames - 1);
  recovery.mayBeCreated = numberedNames < kNumberedNames;
  return recovery;
}

}  // namespace

Recovery findRecovery(const HeaderImage& wanted, const config::OptionsRecord& options) {
  const std::string directory = directoryInForce(options);
  return options.fallbackFile.empty()
             ? recoverFound(wanted, directory)
             : recoverExplicit(wanted, directory + "\\" + options.fallbackFile);
}

}  // namespace tallow::fallback
