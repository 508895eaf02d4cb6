// Writes the table of the host guide that gives every field of the parameter blocks with its
// offset:
//
//   block_layout          prints it
//   block_layout GUIDE    replaces it in that file
//
// It does not compile if a field is left out: each must begin where the one before it ends.
#include <tallow/tallow.h>

#include <array>
#include <cstddef>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace {

struct Field {
  std::string_view name;
  std::size_t offset;
  std::size_t size;
  std::string_view kind;
};

template <typename Type>
constexpr std::string_view kindOf() {
  if (std::is_array_v<Type>) return "bytes";
  if (std::is_pointer_v<Type>) return "pointer";
  return std::is_signed_v<Type> ? "signed integer" : "integer";
}

template <std::size_t count>
constexpr bool isComplete(const std::array<Field, count>& fields, std::size_t size) {
  std::size_t end = 0;
  for (const Field& field : fields) {
    if (field.offset != end) return false;
    end += field.size;
  }
  return end == size;
}

template <std::size_t count>
void print(std::ostream& out, std::string_view block, std::string_view requests,
           const std::array<Field, count>& fields, std::size_t size) {
  out << "\n`" << block << "` (" << requests << "), " << size << " bytes:\n\n"
      << "| Offset | Bytes | Field | Kind |\n|---|---|---|---|\n";
  for (const Field& field : fields) {
    out << "| " << field.offset << " | " << field.size << " | `" << field.name << "` | "
        << field.kind << " |\n";
  }
}

#define FIELD(block, name)                                                             \
  Field {                                                                              \
    #name, offsetof(block, name), sizeof(block::name), kindOf<decltype(block::name)>() \
  }
// A block with its fields, which must be all.
#define BLOCK(block, requests, ...)                                                           \
  {                                                                                           \
    constexpr std::array fields{__VA_ARGS__};                                                 \
    static_assert(isComplete(fields, sizeof(block)), #block " has a field that is left out"); \
    print(out, #block, requests, fields, sizeof(block));                                      \
  }

std::string table() {
  std::ostringstream out;
#define F(name) FIELD(TallowRequestBlock, name)
  BLOCK(TallowRequestBlock, "every request", F(hostHeader), F(requestCode), F(returnCode),
        F(reserved), F(messageLength), F(messageText))
#undef F
#define F(name) FIELD(TallowInitBlock, name)
  BLOCK(TallowInitBlock, "Init", F(hostHeader), F(moduleHandle), F(interfaceLevel1),
        F(interfaceLevel2), F(moduleNameLength), F(reserved), F(moduleName), F(initStringLength),
        F(initString))
#undef F
#define F(name) FIELD(TallowOpenBlock, name)
  BLOCK(TallowOpenBlock, "Open; at least up to the NUL after the name", F(hostHeader),
        F(moduleHandle), F(openMode), F(zero), F(blockSize), F(instanceHandle), F(pipeNameLength),
        F(pipeName))
#undef F
#define F(name) FIELD(TallowCloseBlock, name)
  BLOCK(TallowCloseBlock, "Close, CloseR", F(hostHeader), F(instanceHandle))
#undef F
#define F(name) FIELD(TallowReadBlock, name)
  BLOCK(TallowReadBlock, "Read", F(hostHeader), F(instanceHandle), F(dataLength), F(dataBuffer))
#undef F
#define F(name) FIELD(TallowPositionBlock, name)
  BLOCK(TallowPositionBlock, "GetPos, SetPos", F(hostHeader), F(instanceHandle), F(positionLength),
        F(position))
#undef F
#define F(name) FIELD(TallowIdBlock, name)
  BLOCK(TallowIdBlock, "ID", F(hostHeader), F(name), F(version), F(components))
#undef F
#define F(name) FIELD(TallowComponentVersion, name)
  BLOCK(TallowComponentVersion, "one entry of ID's list", F(name), F(version), F(next))
#undef F
#define F(name) FIELD(TallowAttributeBlock, name)
  BLOCK(TallowAttributeBlock, "the four attribute requests", F(hostHeader), F(moduleHandle),
        F(reserved), F(attributeName), F(attributeValue))
#undef F
  return out.str();
}

constexpr std::string_view kBegin =
    "<!-- Made by tests/client/block_layout.cpp from tallow.h; do not edit. -->\n";
constexpr std::string_view kEnd = "\n<!-- The end of what is made. -->\n";

int replaceIn(const char* path) {
  std::ifstream in(path, std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(in), {}};
  const std::size_t begin = text.find(kBegin);
  const std::size_t end = text.find(kEnd, begin);
  if (begin == std::string::npos || end == std::string::npos) {
    std::cerr << "block_layout: " << path << " has no place for the table\n";
    return 1;
  }
  text.replace(begin + kBegin.size(), end - begin - kBegin.size(), table());
  std::ofstream out(path, std::ios::binary);
  out << text << std::flush;
  return out ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2) return replaceIn(argv[1]);
  std::cout << kBegin << table() << kEnd;
  return 0;
}
