#include "module/model/file_model.hpp"

namespace tallow::test {
namespace {

std::string littleEndian(std::uint64_t number, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>((number >> (8 * i)) & 0xff);
  return text;
}

std::uint64_t fromLittleEndian(std::string_view bytes) {
  std::uint64_t number = 0;
  for (std::size_t i = bytes.size(); i > 0; --i) {
    number = (number << 8) | static_cast<unsigned char>(bytes[i - 1]);
  }
  return number;
}

}  // namespace

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

std::string bytesOf32(std::uint32_t number) {
  return littleEndian(number, 4);
}
std::string bytesOf64(std::uint64_t number) {
  return littleEndian(number, 8);
}
std::uint32_t numberOf32(std::string_view bytes) {
  return static_cast<std::uint32_t>(fromLittleEndian(bytes.substr(0, 4)));
}
std::uint64_t numberOf64(std::string_view bytes) {
  return fromLittleEndian(bytes.substr(0, 8));
}

}  // namespace tallow::test
