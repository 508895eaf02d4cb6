// A job that survives the death of its host at any moment: its output and its checkpoints on disk.
#pragma once

#include <windows.h>
#include <tallow/module.hpp>
#include <tallow/note.hpp>
#include <tallow/windows_text.hpp>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tallow {

// A file that is written from front to back. Owns its handle. While it is open, no other process
// can write to it: a second host of the same job fails here. Throws SystemError.
class OutputFile {
 public:
  // Opens the file, or creates it, and cuts it to `length` bytes. The first write() appends there.
  // `path` is UTF-16. Throws SystemError; its code is ERROR_HANDLE_EOF if the file is shorter than
  // `length`, because then it is not the file that the job wrote.
  OutputFile(std::wstring path, std::uint64_t length)
      : path_(std::move(path)),
        handle_(CreateFileW(path_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr)),
        length_(length) {
    if (handle_ == INVALID_HANDLE_VALUE) fail("cannot open", GetLastError());
    try {
      cut();
    } catch (...) {
      CloseHandle(handle_);
      throw;
    }
  }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile() { CloseHandle(handle_); }

  // Appends the bytes. The system may still hold them in memory: flush() puts them on the disk.
  void write(std::string_view bytes) {
    constexpr std::size_t kMost = std::size_t{1} << 30;
    while (!bytes.empty()) {
      DWORD written = 0;
      const auto wanted = static_cast<DWORD>((std::min)(bytes.size(), kMost));
      if (!WriteFile(handle_, bytes.data(), wanted, &written, nullptr)) {
        fail("cannot write", GetLastError());
      }
      if (written == 0) fail("cannot write", ERROR_DISK_FULL);
      bytes.remove_prefix(written);
      length_ += written;
    }
  }

  // The length of the file in bytes, with what earlier runs have written.
  std::uint64_t length() const noexcept { return length_; }

  // Forces what was written to the disk, and returns when it is there.
  void flush() {
    if (!FlushFileBuffers(handle_)) fail("cannot write", GetLastError());
  }

 private:
  void cut() {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(handle_, &size)) fail("cannot look at", GetLastError());
    if (static_cast<std::uint64_t>(size.QuadPart) < length_) {
      fail("not what the job wrote:", ERROR_HANDLE_EOF);
    }
    size.QuadPart = static_cast<LONGLONG>(length_);
    if (!SetFilePointerEx(handle_, size, nullptr, FILE_BEGIN) || !SetEndOfFile(handle_)) {
      fail("cannot cut", GetLastError());
    }
  }
  [[noreturn]] void fail(const char* what, DWORD error) const {
    throw SystemError(std::string(what) + " " + detail::forMessage(path_), error);
  }

  std::wstring path_;
  HANDLE handle_;
  std::uint64_t length_;
};

// The note of a job, in a file that is replaced in one step, and the rules by which it is kept.
// Owns no handle. The order, in every run:
//
//   CheckpointFile job(folder, L"orders");
//   if (job.done()) return;                      // nothing is left to do
//   ... take the output back to job.progress()
//   Module module(entry, narrow(job.options()), ...);
//   Instance input = module.open(pipe);
//   job.resume(input);
//   while (const auto block = input.read()) {
//     job.beforeBlock(input, progress, flush);
//     ... put the block into the output
//   }
//   job.finish(input, progress, flush);
//
// `progress` says how far the output is, in a unit that the host chooses, such as bytes of a file
// or rows of a table. `flush` is a function without arguments that returns when the output is on
// the disk up to there; it is called at checkpoints and by finish(), and nowhere else. Throws
// SystemError if the note cannot be read or written, Error if the module refuses a request, and
// whatever `flush` throws. After any exception destroy the Instance: its fallback file stays, and
// the next run continues from the last checkpoint.
class CheckpointFile {
 public:
  // Reads FOLDER\NAME.note, if it is there. Both texts are UTF-16, and the folder must exist. A
  // checkpoint is taken every `everyBlocks` blocks; the number must not be 0. If the note says that
  // the job is done, deletes the fallback file that a host has left which died between this note
  // and Close. The note itself stays until the host deletes it. Throws SystemError; its code is
  // ERROR_FILE_CORRUPT if the file is not a note.
  CheckpointFile(const std::wstring& folder, std::wstring name, std::uint64_t everyBlocks = 64)
      : folder_(withoutEnd(folder)), name_(std::move(name)), everyBlocks_(everyBlocks) {
    if (const auto text = load()) {
      const std::optional<Note> note = readNote(*text);
      if (!note) fail("is no note:", ERROR_FILE_CORRUPT);
      note_ = *note;
    }
    if (note_.done) DeleteFileW(fallbackFile().c_str());
  }

  // True if an earlier run has finished the job.
  bool done() const noexcept { return note_.done; }
  // The progress that the last checkpoint recorded, in the host's unit; 0 for a new job. Take the
  // output back to it before the first block is read.
  std::uint64_t progress() const noexcept { return note_.progress; }
  std::wstring noteFile() const { return folder_ + L"\\" + name_ + L".note"; }
  std::wstring fallbackFile() const { return folder_ + L"\\" + name_ + L".fbf"; }
  // Whether the fallback file is there. Ask after a checkpoint: if it is false then, the module
  // could not create or write the file. The job continues correctly, but cannot be restarted.
  bool hasFallbackFile() const {
    return GetFileAttributesW(fallbackFile().c_str()) != INVALID_FILE_ATTRIBUTES;
  }

  // The options that name the fallback file, with a blank before them, in UTF-16. Append them to
  // the initialisation string.
  std::wstring options() const {
    const bool isRoot = !folder_.empty() && folder_.back() == L':';
    return L" Fallback_Directory=\"" + folder_ + (isRoot ? L"\\" : L"") + L"\" Fallback_file=\"" +
           name_ + L".fbf\"";
  }

  // Call it directly after Open, before the first read. Sends SetPos with the position of the last
  // checkpoint, and returns when the writer has sent the data up to there again. Does nothing if
  // there is no checkpoint. Throws Error if the module refuses the position.
  void resume(Instance& input) {
    if (note_.position == 0) return;
    input.setPos(note_.position);
    // The first block takes a checkpoint again: otherwise two deaths in a row between a checkpoint
    // and its note would leave two positions in the file that are in no note.
    blocksLeft_ = 1;
  }

  // Call it after each block is read and before the block goes to the output. `progress` is that of
  // the output without this block. If a checkpoint is due, sends GetPos, calls `flush` and writes
  // the note, in this order; otherwise does nothing. Throws Error and SystemError.
  template <class Flush>
  void beforeBlock(Instance& input, std::uint64_t progress, Flush flush) {
    if (blocksLeft_ == 0) blocksLeft_ = everyBlocks_;
    if (--blocksLeft_ != 0) return;
    const std::uint64_t position = input.getPos();
    flush();
    save({position, progress, false});
  }

  // Call it after read() has returned nothing. Calls `flush`, writes the note that the job is done,
  // and sends Close, which deletes the fallback file. `progress` is that of the whole output.
  // Throws Error and SystemError.
  template <class Flush>
  void finish(Instance& input, std::uint64_t progress, Flush flush) {
    flush();
    save({note_.position, progress, true});
    input.close();
  }

 private:
  static std::wstring withoutEnd(const std::wstring& folder) {
    // The module takes no folder with a backslash at its end.
    return folder.substr(0, folder.find_last_not_of(L"\\/") + 1);
  }

  std::optional<std::string> load() const {
    const HANDLE file = CreateFileW(noteFile().c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
      const DWORD error = GetLastError();
      if (error != ERROR_FILE_NOT_FOUND) fail("cannot read", error);
      return std::nullopt;
    }
    std::string text(256, '\0');  // a note is shorter
    DWORD length = 0;
    const BOOL read =
        ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &length, nullptr);
    const DWORD error = GetLastError();
    CloseHandle(file);
    if (!read) fail("cannot read", error);
    text.resize(length);
    return text;
  }

  // A death at any moment leaves either the old note or the new one.
  void save(const Note& note) {
    const std::wstring draft = noteFile() + L".new";
    {
      OutputFile file(draft, 0);
      file.write(noteText(note));
      file.flush();
    }
    if (!MoveFileExW(draft.c_str(), noteFile().c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      fail("cannot replace", GetLastError());
    }
    note_ = note;
  }

  [[noreturn]] void fail(const char* what, DWORD error) const {
    throw SystemError(std::string(what) + " " + detail::forMessage(noteFile()), error);
  }

  std::wstring folder_;
  std::wstring name_;
  std::uint64_t everyBlocks_;
  std::uint64_t blocksLeft_ = 0;  // to the next checkpoint; 0: everyBlocks_
  Note note_;
};

}  // namespace tallow
