#include "common/module.hpp"

#include <windows.h>
#include <tallow/error.hpp>

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "common/beside_program.hpp"
#include "common/portable_executable.hpp"
#include "common/text.hpp"

namespace tallow::client {
namespace {

// Sends one request and returns its return code. Throws RequestFailed unless that is success or
// `alsoGood`.
std::uint32_t send(TallowPIDMMain entry, std::uint32_t request, void* parameters,
                   std::uint32_t alsoGood = pmrcSuccess) {
  TallowRequestBlock block{};
  block.requestCode = request;
  entry(&block, parameters);
  const std::uint32_t code = block.returnCode;
  if (code == pmrcSuccess || code == alsoGood) return code;
  const char* text = block.messageText;
  throw RequestFailed(request, code, code == pmrcFailed && text != nullptr ? text : "");
}

std::string describe(std::uint32_t request, std::uint32_t code, const std::string& failureText) {
  std::string text = std::string(requestName(request)) + " failed with " + tallow_code_name(code) +
                     " (" + std::to_string(code) + ")";
  if (!failureText.empty()) text += ": " + failureText;
  return text;
}

std::string boundedText(const char* text, std::size_t size) {
  return {text, std::find(text, text + size, '\0')};
}

std::string loadFailure(const std::string& name, DWORD error) {
  switch (error) {
    case ERROR_DLL_INIT_FAILED:
      return name + " refused to start; put its language library tallowinenu.dll beside it";
    case ERROR_MOD_NOT_FOUND:
      return name + " needs another DLL that is not there: " + tools::systemErrorText(error);
    default:
      return name + " cannot be loaded: " + tools::systemErrorText(error);
  }
}

}  // namespace

RequestFailed::RequestFailed(std::uint32_t request, std::uint32_t code, std::string failureText)
    : std::runtime_error(describe(request, code, failureText)),
      request_(request),
      code_(code),
      failureText_(std::move(failureText)) {}

Instance::Instance(Instance&& other) noexcept
    : entry_(other.entry_),
      handle_(std::exchange(other.handle_, nullptr)),
      blockSize_(other.blockSize_) {}

Instance::~Instance() {
  try {
    close();
  } catch (const RequestFailed&) {
    // A destructor cannot report it. A caller that must know calls close().
  }
}

ReadResult Instance::read(std::span<std::byte> buffer) {
  if (buffer.size() < blockSize_) throw std::length_error("the buffer is smaller than a block");
  TallowReadBlock block{};
  block.instanceHandle = handle_;
  block.dataBuffer = buffer.data();
  const std::uint32_t code = send(entry_, pmiPIDMOptRead, &block, pmrcEOF);
  return {code, block.dataLength};
}

std::uint64_t Instance::getPos() {
  TallowPositionBlock block{};
  block.instanceHandle = handle_;
  send(entry_, pmiPIDMOptGetPos, &block);
  std::uint64_t position = 0;
  std::memcpy(&position, block.position, sizeof position);
  return position;
}

void Instance::setPos(std::uint64_t position) {
  TallowPositionBlock block{};
  block.instanceHandle = handle_;
  block.positionLength = TALLOW_POSITION_SIZE;
  block.position = &position;
  send(entry_, pmiPIDMOptSetPos, &block);
}

void Instance::close() {
  close(pmiPIDMOptClose);
}

void Instance::closeR() {
  close(pmiPIDMOptCloseR);
}

void Instance::close(std::uint32_t request) {
  if (handle_ == nullptr) return;
  TallowCloseBlock block{};
  // The handle is invalid from here on, whatever the return code is.
  block.instanceHandle = std::exchange(handle_, nullptr);
  send(entry_, request, &block);
}

std::filesystem::path Module::besideProgram() {
  return tools::besideProgram(L"tallowin.dll");
}

Module::Module(const std::filesystem::path& path) {
  // The system would search its own folders for a name without a folder.
  const std::filesystem::path full = std::filesystem::absolute(path);
  const std::string name = tools::toUtf8(path.wstring());
  if (const std::string fault = tools::libraryFault(full); !fault.empty()) {
    throw ModuleNotUsable(name + " " + fault + "; name a tallowin.dll with --module");
  }
  library_.reset(LoadLibraryExW(full.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
  if (!library_) throw ModuleNotUsable(loadFailure(name, GetLastError()));
  const FARPROC symbol = GetProcAddress(static_cast<HMODULE>(library_.get()), "PIDMMain");
  if (symbol == nullptr) {
    throw ModuleNotUsable(name +
                          " is not an access module (it exports no PIDMMain); name a "
                          "tallowin.dll with --module");
  }
  entry_ = std::bit_cast<TallowPIDMMain>(symbol);
}

Module::~Module() = default;

void Module::Unload::operator()(void* library) const noexcept {
  FreeLibrary(static_cast<HMODULE>(library));
}

Identity Module::identify() {
  TallowIdBlock block{};
  send(entry_, pmiPIDMOptID, &block);
  Identity identity{boundedText(block.name, sizeof block.name),
                    boundedText(block.version, sizeof block.version),
                    {}};
  for (const TallowComponentVersion* item = block.components; item != nullptr; item = item->next) {
    identity.components.push_back({boundedText(item->name, sizeof item->name),
                                   boundedText(item->version, sizeof item->version)});
  }
  return identity;
}

void* Module::init(std::string initString, const std::string& moduleName) {
  TallowInitBlock block{};
  block.interfaceLevel1 = TALLOW_INTERFACE_LEVEL_1;
  block.interfaceLevel2 = TALLOW_INTERFACE_LEVEL_2;
  const std::size_t nameLength = std::min(moduleName.size(), sizeof block.moduleName - 1);
  std::memcpy(block.moduleName, moduleName.data(), nameLength);
  block.moduleNameLength = static_cast<std::uint32_t>(nameLength);
  block.initStringLength = static_cast<std::uint32_t>(initString.size());
  block.initString = initString.data();
  send(entry_, pmiPIDMOptInit, &block);
  return block.moduleHandle;
}

void Module::setAttribute(void* moduleHandle, const std::string& name, const std::string& value) {
  if (name.size() >= TALLOW_ATTRIBUTE_NAME_SIZE || value.size() >= TALLOW_ATTRIBUTE_VALUE_SIZE) {
    throw std::length_error("the attribute \"" + name + "\" is too long");
  }
  TallowAttributeBlock block{};
  block.moduleHandle = moduleHandle;
  std::memcpy(block.attributeName, name.data(), name.size());
  std::memcpy(block.attributeValue, value.data(), value.size());
  send(entry_, pmiPIDMOptPutA_A, &block);
}

Instance Module::open(void* moduleHandle, const std::string& pipeName) {
  if (pipeName.size() >= TALLOW_PIPE_NAME_SIZE) {
    throw std::length_error("the pipe name is too long");
  }
  const auto block = std::make_unique<TallowOpenBlock>();
  block->moduleHandle = moduleHandle;
  block->openMode = TALLOW_OPEN_FOR_READING;
  block->pipeNameLength = static_cast<std::uint16_t>(pipeName.size());
  std::memcpy(block->pipeName, pipeName.data(), pipeName.size());
  send(entry_, pmiPIDMOptOpen, block.get());
  return {entry_, block->instanceHandle, block->blockSize};
}

void Module::shut() {
  TallowCloseBlock unread{};
  send(entry_, pmiPIDMOptShut, &unread);
}

}  // namespace tallow::client
