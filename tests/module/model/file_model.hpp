// The files of the fallback directory as the rules require them.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

namespace tallow::test {

// A file of which some bytes may be anything.
class FileModel {
 public:
  FileModel() = default;
  // A file in which every byte must be as given here.
  explicit FileModel(std::string bytes) : bytes_(std::move(bytes)), known_(bytes_.size(), '\1') {}

  std::size_t size() const { return bytes_.size(); }
  const std::string& bytes() const { return bytes_; }

  // Puts bytes at an offset that is not beyond the end.
  void write(std::size_t offset, std::string_view bytes);
  // Puts `count` bytes that may be anything.
  void writeAnything(std::size_t offset, std::size_t count);

  void cut(std::size_t size);

  // What is wrong with a file that should be this one; empty if nothing is.
  std::string differenceTo(std::string_view real) const;

 private:
  std::string bytes_;
  std::string known_;  // 1 for a byte that must be as it is here
};

// By file name, without the directory.
using DiskModel = std::map<std::string, FileModel>;

}  // namespace tallow::test
