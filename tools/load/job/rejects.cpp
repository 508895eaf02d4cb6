#include "load/job/rejects.hpp"

#include <span>
#include <string_view>

#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

constexpr std::string_view kReasonsHeader = "line,offset,sqlstate,reason\r\n";

std::span<const std::byte> bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

tools::OutputFile open(const std::string& path, std::uint64_t length) {
  tools::OutputFile file =
      length > 0 ? tools::OutputFile::openExisting(path) : tools::OutputFile::openOrCreate(path);
  if (file.size() < length) {
    throw tools::ToolError(path + " has " + std::to_string(file.size()) +
                           " bytes, and the database says that " + std::to_string(length) +
                           " belong to the job; bring the file back, or begin anew with "
                           "--start-over");
  }
  return file;
}

}  // namespace

Rejects::Rejects(const std::string& path, std::uint64_t length, std::uint64_t reasonsLength)
    : length_(length), reasonsLength_(reasonsLength) {
  if (path.empty() && length > 0) {
    throw tools::ToolError("the job has a rejects file of " + std::to_string(length) +
                           " bytes; name it with --rejects");
  }
  if (path.empty()) return;
  rows_ = open(path, length);
  reasons_ = open(reasonsPath(path), reasonsLength);
}

void Rejects::write(const Row& row, const Diagnostic& reason) {
  if (!rows_) return;
  std::string line = reasonsLength_ == 0 ? std::string(kReasonsHeader) : std::string();
  line += reasonLine(row, reason);
  rows_->write(bytesOf(row.raw));
  reasons_->write(bytesOf(line));
  length_ += row.raw.size();
  reasonsLength_ += line.size();
  unflushed_ = true;
}

void Rejects::cutTo(std::uint64_t length, std::uint64_t reasonsLength) {
  length_ = length;
  reasonsLength_ = reasonsLength;
  if (!rows_) return;
  rows_->cutTo(length);
  reasons_->cutTo(reasonsLength);
  unflushed_ = true;
}

void Rejects::flushToDisk() {
  if (!unflushed_) return;
  rows_->flushToDisk();
  reasons_->flushToDisk();
  unflushed_ = false;
}

}  // namespace tallow::load
