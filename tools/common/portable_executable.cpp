#include "common/portable_executable.hpp"

#include <array>
#include <cstdint>
#include <fstream>
#include <system_error>

namespace tallow::tools {
namespace {

constexpr std::uint32_t kPeOffsetField = 0x3c;
constexpr std::uint16_t kMachineAmd64 = 0x8664;
constexpr std::uint16_t kIsDll = 0x2000;
// "PE\0\0" and the 20 bytes of the file header.
constexpr std::size_t kPeHeaderSize = 24;

template <std::size_t Size>
bool readAt(std::ifstream& file, std::uint32_t offset, std::array<unsigned char, Size>& bytes) {
  file.seekg(offset);
  file.read(reinterpret_cast<char*>(bytes.data()), Size);
  return file.good();
}

std::uint16_t word(const unsigned char* bytes) {
  return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

}  // namespace

std::string libraryFault(const std::filesystem::path& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (!std::filesystem::exists(status)) return "does not exist";
  if (std::filesystem::is_directory(status)) return "is a folder";
  std::ifstream file(path, std::ios::binary);
  if (!file) return "cannot be read";

  std::array<unsigned char, kPeOffsetField + 4> dosHeader{};
  std::array<unsigned char, kPeHeaderSize> peHeader{};
  if (!readAt(file, 0, dosHeader) || dosHeader[0] != 'M' || dosHeader[1] != 'Z') {
    return "is not a DLL";
  }
  const unsigned char* offset = &dosHeader[kPeOffsetField];
  const auto peOffset =
      static_cast<std::uint32_t>(word(offset)) | static_cast<std::uint32_t>(word(offset + 2)) << 16;
  if (!readAt(file, peOffset, peHeader) || peHeader[0] != 'P' || peHeader[1] != 'E') {
    return "is not a DLL";
  }
  if (word(&peHeader[4]) != kMachineAmd64) return "is not for 64-bit Windows";
  if ((word(&peHeader[22]) & kIsDll) == 0) return "is a program, not a DLL";
  return {};
}

}  // namespace tallow::tools
