#include "support/files.hpp"

#include <windows.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tallow::test {

bool exists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void putFile(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file.good()) throw std::runtime_error("cannot write " + path);
}

}  // namespace tallow::test
