#include "module/model/file_model.hpp"

namespace tallow::test {
void FileModel::write(std::size_t offset, std::string_view bytes) {
  const std::size_t end = offset + bytes.size();
  if (bytes_.size() < end) {
    bytes_.resize(end);
    known_.resize(end);
  }
  bytes_.replace(offset, bytes.size(), bytes);
  known_.replace(offset, bytes.size(), std::string(bytes.size(), '\1'));
}

void FileModel::writeAnything(std::size_t offset, std::size_t count) {
  write(offset, std::string(count, '\0'));
  known_.replace(offset, count, std::string(count, '\0'));
}

void FileModel::cut(std::size_t size) {
  bytes_.resize(size);
  known_.resize(size);
}

std::string FileModel::differenceTo(std::string_view real) const {
  if (real.size() != bytes_.size()) {
    return "it has " + std::to_string(real.size()) + " bytes, not " + std::to_string(bytes_.size());
  }
  for (std::size_t i = 0; i < real.size(); ++i) {
    if (known_[i] != '\0' && real[i] != bytes_[i]) {
      return "its byte " + std::to_string(i) + " is " +
             std::to_string(static_cast<unsigned char>(real[i])) + ", not " +
             std::to_string(static_cast<unsigned char>(bytes_[i]));
    }
  }
  return {};
}

}  // namespace tallow::test
