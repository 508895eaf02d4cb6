#include "fallback/search.hpp"

#include <windows.h>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "fallback/fallback_name.hpp"
#include "fallback/validate.hpp"

namespace tallow::fallback {

namespace {

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

bool takeOver(FallbackFile& file, const config::OptionsRecord& options, const std::string& name) {
  FileStream stream = FileStream::open(name, "r+b");
  if (!stream) return false;
  if (validate(file, std::move(stream), name, Candidate::kFound, options)) return true;
  diag::logMessage<MessageId::kFallbackFileUnusable>(diag::LogLevel::kTrace, name.c_str());
  return false;
}

}  // namespace

SearchResult searchForRecovery(FallbackFile& file, const config::OptionsRecord& options,
                               const std::string& directory, const std::string& stem) {
  unsigned numberedNames = 0;
  DirectorySearch search(directory + "\\" + stem + "*" + std::string(kExtension));
  for (; search; search.next()) {
    const WIN32_FIND_DATAA& entry = search.entry();
    if (isNumberedName(entry.cFileName, stem)) ++numberedNames;
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    if (takeOver(file, options, entry.cFileName)) return {true, numberedNames};
  }
  return {false, numberedNames};
}

}  // namespace tallow::fallback
