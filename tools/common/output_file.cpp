#include "common/output_file.hpp"

#include <algorithm>
#include <utility>

#include "common/text.hpp"
#include "common/tool_error.hpp"

namespace tallow::tools {
namespace {

std::string advice(DWORD error) {
  switch (error) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return "; make room on the disk or name another place";
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
      return "; check its permissions or name another place";
    case ERROR_PATH_NOT_FOUND:
    case ERROR_FILE_NOT_FOUND:
      return "; check that the folder exists";
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
      return "; another program has it open";
    default:
      return "";
  }
}

bool isFolder(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(toWide(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

[[noreturn]] void fail(const std::string& what, const std::string& name) {
  const DWORD error = GetLastError();
  if (isFolder(name)) throw ToolError(name + " is a folder; name a file");
  const std::string text = what + " " + name + ": " + systemErrorText(error) + advice(error);
  if (error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION) throw FileInUse(text);
  throw ToolError(text);
}

HANDLE openFor(const std::string& path, DWORD access, DWORD disposition) {
  return CreateFileW(toWide(path).c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

}  // namespace

OutputFile::OutputFile(std::string name, HANDLE file, bool owned) : name_(std::move(name)) {
  if (owned) {
    owned_ = UniqueFileHandle(file);
  } else {
    standard_ = file;
  }
}

OutputFile OutputFile::create(const std::string& path) {
  OutputFile file(path, openFor(path, GENERIC_WRITE, CREATE_ALWAYS), true);
  if (!file.owned_) fail("cannot create", path);
  return file;
}

OutputFile OutputFile::openOrCreate(const std::string& path) {
  OutputFile file(path, openFor(path, GENERIC_WRITE, OPEN_ALWAYS), true);
  if (!file.owned_) fail("cannot create", path);
  return file;
}

OutputFile OutputFile::openExisting(const std::string& path) {
  OutputFile file(path, openFor(path, GENERIC_WRITE, OPEN_EXISTING), true);
  if (!file.owned_) fail("cannot open", path);
  return file;
}

std::optional<OutputFile> OutputFile::tryOpenExisting(const std::string& path) {
  OutputFile file(path, openFor(path, GENERIC_WRITE, OPEN_EXISTING), true);
  if (file.owned_) return file;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return std::nullopt;
  SetLastError(error);
  fail("cannot open", path);
}

OutputFile OutputFile::standardOutput() {
  return {"standard output", GetStdHandle(STD_OUTPUT_HANDLE), false};
}

void OutputFile::write(std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const auto wanted = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1U << 30));
    DWORD written = 0;
    if (!WriteFile(get(), bytes.data(), wanted, &written, nullptr)) fail("cannot write", name_);
    if (written == 0) {
      SetLastError(ERROR_DISK_FULL);
      fail("cannot write", name_);
    }
    bytes = bytes.subspan(written);
  }
}

void OutputFile::flushToDisk() {
  if (owned_ && !FlushFileBuffers(owned_.get())) fail("cannot write", name_);
}

std::uint64_t OutputFile::size() const {
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(get(), &size)) fail("cannot look at", name_);
  return static_cast<std::uint64_t>(size.QuadPart);
}

bool OutputFile::isOrdinary() const noexcept {
  return GetFileType(get()) == FILE_TYPE_DISK;
}

void OutputFile::cutTo(std::uint64_t length) {
  LARGE_INTEGER position{};
  position.QuadPart = static_cast<LONGLONG>(length);
  if (!SetFilePointerEx(get(), position, nullptr, FILE_BEGIN) || !SetEndOfFile(get())) {
    fail("cannot cut back", name_);
  }
}

void renameFile(const std::string& from, const std::string& to) {
  if (!MoveFileExW(toWide(from).c_str(), toWide(to).c_str(),
                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    fail("cannot replace", to);
  }
}

void removeFile(const std::string& path) {
  if (!DeleteFileW(toWide(path).c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) {
    fail("cannot delete", path);
  }
}

void replaceFile(const std::string& path, std::string_view content) {
  const std::string temporary = path + ".tmp";
  {
    OutputFile file = OutputFile::create(temporary);
    file.write(std::as_bytes(std::span(content)));
    file.flushToDisk();
  }
  renameFile(temporary, path);
}

std::string readTextFile(const std::string& path, std::uint64_t limit) {
  const UniqueFileHandle file(CreateFileW(toWide(path).c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size{};
  if (!file || !GetFileSizeEx(file.get(), &size)) fail("cannot read", path);
  if (static_cast<std::uint64_t>(size.QuadPart) > limit) {
    throw ToolError(path + " is too large to be what it should be; check the name");
  }
  std::string content(static_cast<std::size_t>(size.QuadPart), '\0');
  DWORD got = 0;
  if (!ReadFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &got, nullptr)) {
    fail("cannot read", path);
  }
  content.resize(got);
  return content;
}

}  // namespace tallow::tools
