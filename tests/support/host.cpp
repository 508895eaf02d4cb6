#include "support/host.hpp"

#include <gtest/gtest.h>

#include <array>
#include <span>
#include <stdexcept>

#include "support/surroundings.hpp"

namespace tallow::test {
namespace {

constexpr std::uint32_t kUntouchedCode = 0xcccccccc;
constexpr std::uint16_t kUntouchedWord = 0xeeee;
constexpr ByteRange kReturnCode{38, 4};
constexpr ByteRange kMessageFields{46, 12};

void expectUntouched(const GuardedMemory& block, std::span<const ByteRange> writable,
                     const char* what) {
  const std::string changes = block.changesOutside(writable);
  EXPECT_EQ(changes, "") << "the module changed these bytes of the " << what;
}

void expectUntouched(const GuardedMemory& block, const char* what) {
  expectUntouched(block, {}, what);
}

// A message text is read up to its 512 bytes, no further.
std::string messageAt(const char* area) {
  const std::string_view whole(area, TALLOW_MESSAGE_AREA_SIZE);
  const std::size_t end = whole.find('\0');
  EXPECT_NE(end, std::string_view::npos) << "the failure text has no end";
  EXPECT_EQ(whole.substr(end).find_first_not_of('\0'), std::string_view::npos)
      << "the message area after the failure text is not zero";
  return std::string(whole.substr(0, end));
}

std::string textOf(const GuardedMemory& block, std::size_t offset) {
  std::array<char, TALLOW_ID_TEXT_SIZE> field{};
  block.getBytes(offset, field.data(), field.size());
  EXPECT_EQ(field.back(), '\0');
  return field.data();
}

}  // namespace

std::string modulePath() {
  return programDirectory() + "\\tallowin.dll";
}

Module::Module(const std::string& path) {
  if (GetModuleHandleA("tallowin.dll") != nullptr) throw std::logic_error("module loaded already");
  handle_ = LoadLibraryA(path.c_str());
  if (handle_ == nullptr) {
    throw std::runtime_error("cannot load " + path + ": " + std::to_string(GetLastError()));
  }
  entry_ = reinterpret_cast<TallowPIDMMain>(
      reinterpret_cast<void*>(GetProcAddress(handle_, "PIDMMain")));
  if (entry_ == nullptr) {
    FreeLibrary(handle_);
    throw std::runtime_error(path + " exports no PIDMMain");
  }
}

Module::~Module() {
  FreeLibrary(handle_);
}

Answer Host::call(std::uint32_t code, void* parameters) {
  GuardedMemory block(sizeof(TallowRequestBlock));
  block.put(34, code);
  block.put(38, kUntouchedCode);
  block.put(46, kUntouchedCode);
  block.put(50, std::uint64_t{0});
  block.remember();
  entry_(reinterpret_cast<TallowRequestBlock*>(block.data()), parameters);

  Answer answer;
  answer.code = block.get<std::uint32_t>(38);
  answer.textLength = block.get<std::uint32_t>(46);
  answer.textAddress = block.get<char*>(50);
  // Init may continue after it has written a text, and then end with another return code.
  const bool mayHaveText = answer.code == pmrcFailed || code == pmiPIDMOptInit;
  const std::array both{kReturnCode, kMessageFields};
  expectUntouched(block, std::span(both).first(mayHaveText ? 2 : 1), "request block");
  if (answer.textAddress != nullptr) answer.text = messageAt(answer.textAddress);
  EXPECT_TRUE(answer.code != pmrcFailed || answer.text) << "34 without a text";
  return answer;
}

Answer Host::request(std::uint32_t code, GuardedMemory* parameters) {
  if (parameters == nullptr) return call(code, nullptr);
  parameters->remember();
  Answer answer = call(code, parameters->data());
  expectUntouched(*parameters, "parameter block");
  return answer;
}

Answer Host::init(std::string_view options, const InitInput& input) {
  GuardedMemory string(options.size() + 1);
  string.putBytes(0, options.data(), options.size());
  string.remember();
  GuardedMemory block(sizeof(TallowInitBlock));
  block.put(34, std::uint64_t{0});
  block.put(42, input.level1);
  block.put(44, input.level2);
  block.put(46, static_cast<std::uint32_t>(input.moduleName.size()));
  block.putBytes(54, input.moduleName.data(), input.moduleName.size());
  block.put(823, static_cast<std::uint32_t>(options.size()));
  block.put(827, input.nullString ? nullptr : string.data());
  block.remember();
  const Answer answer = call(pmiPIDMOptInit, block.data());

  const bool levelsRefused = answer.code == pmrcBadInterfaceLevel;
  std::vector<ByteRange> writable;
  std::vector<ByteRange> writableInString;
  if (answer.code == pmrcSuccess) writable.push_back({34, 8});
  if (!levelsRefused) {
    writable.push_back({54 + input.moduleName.size(), 1});
    writableInString.push_back({options.size(), 1});
  }
  expectUntouched(block, writable, "Init block");
  expectUntouched(string, writableInString, "initialisation string");
  if (answer.code == pmrcSuccess) {
    EXPECT_EQ(block.get<char>(54 + input.moduleName.size()), '\0');
    EXPECT_TRUE(input.nullString || string.get<char>(options.size()) == '\0');
  }
  moduleHandle = block.get<void*>(34);
  return answer;
}

Answer Host::open(std::string_view pipeName, std::int16_t openMode) {
  GuardedMemory block(60 + pipeName.size() + 1);
  block.put(34, moduleHandle);
  block.put(42, openMode);
  block.put(44, kUntouchedWord);
  block.put(46, kUntouchedCode);
  block.put(58, static_cast<std::uint16_t>(pipeName.size()));
  block.putBytes(60, pipeName.data(), pipeName.size());
  block.remember();
  const Answer answer = call(pmiPIDMOptOpen, block.data());

  std::vector<ByteRange> writable{{50, 8}};
  if (openMode == TALLOW_OPEN_FOR_READING) writable.push_back({60 + pipeName.size(), 1});
  if (answer.code == pmrcSuccess) writable.push_back({44, 6});
  expectUntouched(block, writable, "Open block");
  moduleHandleAfterOpen = block.get<void*>(34);
  wordAfterMode = block.get<std::uint16_t>(44);
  instance = block.get<void*>(50);
  if (answer.code == pmrcSuccess) {
    blockSize = block.get<std::uint32_t>(46);
    EXPECT_EQ(block.get<char>(60 + pipeName.size()), '\0');
  } else {
    EXPECT_EQ(instance, nullptr) << "a failed Open answers no handle";
  }
  return answer;
}

GuardedMemory& Host::readBuffer() {
  if (!readBuffer_ || readBuffer_->size() != blockSize) {
    readBuffer_ = std::make_unique<GuardedMemory>(blockSize);
  }
  return *readBuffer_;
}

ReadAnswer Host::read() {
  GuardedMemory& buffer = readBuffer();
  buffer.remember();
  GuardedMemory block(sizeof(TallowReadBlock));
  block.put(34, instance);
  block.put(42, kUntouchedCode);
  block.put(46, buffer.data());
  block.remember();
  ReadAnswer answer{call(pmiPIDMOptRead, block.data()), {}};

  constexpr std::array kWritable{ByteRange{42, 4}};
  expectUntouched(block, kWritable, "Read block");
  const std::array whole{ByteRange{0, buffer.size()}};
  expectUntouched(buffer, whole, "surroundings of the data buffer");
  const auto length = block.get<std::uint32_t>(42);
  EXPECT_LE(length, instance != nullptr ? blockSize : 0);
  if (length <= blockSize) {
    answer.data.assign(reinterpret_cast<const char*>(buffer.data()), length);
  }
  return answer;
}

PositionAnswer Host::getPos() {
  GuardedMemory block(sizeof(TallowPositionBlock));
  block.put(34, instance);
  block.put(42, kUntouchedCode);
  block.put(46, std::uint64_t{0});
  block.remember();
  PositionAnswer answer{call(pmiPIDMOptGetPos, block.data()), 0, nullptr};

  constexpr std::array kWritable{ByteRange{42, 12}};
  expectUntouched(block, std::span(kWritable).first(answer.code == pmrcSuccess ? 1 : 0),
                  "GetPos block");
  answer.address = block.get<const std::uint64_t*>(46);
  if (answer.address != nullptr) {
    EXPECT_EQ(block.get<std::uint32_t>(42), std::uint32_t{TALLOW_POSITION_SIZE});
    answer.position = *answer.address;
  }
  return answer;
}

Answer Host::setPos(void* position, std::uint32_t length) {
  GuardedMemory block(sizeof(TallowPositionBlock));
  block.put(34, instance);
  block.put(42, length);
  block.put(46, position);
  block.remember();
  const Answer answer = call(pmiPIDMOptSetPos, block.data());
  expectUntouched(block, "SetPos block");
  return answer;
}

Answer Host::setPos(std::uint64_t position, std::uint32_t length) {
  GuardedMemory number(sizeof(position));
  number.put(0, position);
  number.remember();
  const Answer answer = setPos(static_cast<void*>(number.data()), length);
  expectUntouched(number, "position");
  return answer;
}

Answer Host::setPosToNull() {
  return setPos(static_cast<void*>(nullptr), TALLOW_POSITION_SIZE);
}

Answer Host::close(std::uint32_t code) {
  GuardedMemory block(sizeof(TallowCloseBlock));
  block.put(34, instance);
  block.remember();
  const Answer answer = call(code, block.data());
  expectUntouched(block, "Close block");
  return answer;
}

IdAnswer Host::id() {
  GuardedMemory block(sizeof(TallowIdBlock));
  IdAnswer answer{call(pmiPIDMOptID, block.data()), {}, {}, nullptr};
  constexpr std::array kWritable{ByteRange{34, 72}};
  expectUntouched(block, kWritable, "ID block");
  if (answer.code == pmrcSuccess) {
    answer.name = textOf(block, 34);
    answer.version = textOf(block, 66);
    answer.components = block.get<const TallowComponentVersion*>(98);
  }
  return answer;
}

Answer Host::attribute(std::string_view name, std::string_view value, std::uint32_t request) {
  GuardedMemory block(305 + value.size() + 1);
  block.put(34, moduleHandle);
  block.putBytes(46, name.data(), name.size());
  block.put(46 + name.size(), '\0');
  block.putBytes(305, value.data(), value.size());
  block.put(305 + value.size(), '\0');
  block.remember();
  const Answer answer = call(request, block.data());
  expectUntouched(block, "attribute block");
  return answer;
}

}  // namespace tallow::test
