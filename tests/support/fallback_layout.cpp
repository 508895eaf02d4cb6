#include "support/fallback_layout.hpp"

#include <stdexcept>

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

SyncPoint syncPointAt(std::string_view file, std::size_t offset) {
  if (file.size() < offset + kSyncPointSize) throw std::out_of_range("the file has no sync area");
  const std::string_view bytes = file.substr(offset, kSyncPointSize);
  return {numberOf64(bytes), std::string(bytes.substr(kSignatureOffset))};
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
