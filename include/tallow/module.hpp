// The requests as functions: one Init and its open pipes.
#pragma once

#include <tallow/tallow.h>
#include <tallow/error.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tallow {

// Sends one request. Returns pmrcSuccess or `alsoGood`; throws Error for any other return code.
inline std::uint32_t send(TallowPIDMMain entry, std::uint32_t request, void* parameters,
                          std::uint32_t alsoGood = pmrcSuccess) {
  TallowRequestBlock block{};
  block.requestCode = request;
  entry(&block, parameters);
  const std::uint32_t code = block.returnCode;
  if (code == pmrcSuccess || code == alsoGood) return code;
  const char* text = block.messageText;
  throw Error(request, code, code == pmrcFailed && text != nullptr ? text : "");
}

class Instance;

// One Init: a module handle with its options and attributes. It owns nothing: the handle belongs to
// the library and is valid until that is unloaded, so the library must outlive the Module, and the
// Module its Instances. Every call must come from the thread that loaded the library. Texts reach
// the module byte for byte; it takes them for text in the code page of the process.
class Module {
 public:
  // Sends Init. `hostName` is shown in the module's log, 768 bytes of it at most. Throws Error.
  Module(TallowPIDMMain entry, std::string options, const std::string& hostName) : entry_(entry) {
    TallowInitBlock block{};
    block.interfaceLevel1 = TALLOW_INTERFACE_LEVEL_1;
    block.interfaceLevel2 = TALLOW_INTERFACE_LEVEL_2;
    const std::size_t nameLength = (std::min)(hostName.size(), sizeof block.moduleName - 1);
    std::memcpy(block.moduleName, hostName.data(), nameLength);
    block.moduleNameLength = static_cast<std::uint32_t>(nameLength);
    block.initStringLength = static_cast<std::uint32_t>(options.size());
    block.initString = options.data();
    send(entry_, pmiPIDMOptInit, &block);
    handle_ = block.moduleHandle;
  }
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Sends the attribute. It may be set at any time until the pipe is closed. Throws Error if there
  // is no such attribute, std::length_error if the name has more than 258 bytes or the value more
  // than 255.
  void setAttribute(const std::string& name, const std::string& value) {
    putAttribute(name, value);
    if (name == "PRESERVE_RESTART_INFO") keepsFiles_ = value;
  }

  // Opens a pipe; does not wait for its writer. Throws Error, std::length_error for a name of more
  // than 65,535 bytes.
  Instance open(const std::string& pipeName);

 private:
  friend class Instance;

  void putAttribute(const std::string& name, const std::string& value) {
    if (name.size() >= TALLOW_ATTRIBUTE_NAME_SIZE || value.size() >= TALLOW_ATTRIBUTE_VALUE_SIZE) {
      throw std::length_error("the attribute \"" + name + "\" is too long");
    }
    TallowAttributeBlock block{};
    block.moduleHandle = handle_;
    std::memcpy(block.attributeName, name.data(), name.size());
    std::memcpy(block.attributeValue, value.data(), value.size());
    send(entry_, pmiPIDMOptPutA_A, &block);
  }

  TallowPIDMMain entry_;
  void* handle_ = nullptr;
  std::string keepsFiles_ = "NO";  // PRESERVE_RESTART_INFO as the host has set it
};

// An open pipe. Owns the instance handle: the destructor closes it and keeps the fallback file, so
// that a host that fails anywhere can be restarted. Only close() lets the file go. The order is
// open, setPos for a restart, read and getPos until the end, close. All functions throw Error, and
// must come from the thread that loaded the library. An Instance must not outlive its Module.
class Instance {
 public:
  Instance(Instance&& other) noexcept
      : module_(other.module_),
        handle_(std::exchange(other.handle_, nullptr)),
        blockSize_(other.blockSize_),
        sawEnd_(other.sawEnd_),
        buffer_(std::move(other.buffer_)) {}
  Instance& operator=(Instance&&) = delete;
  ~Instance() {
    try {
      closeAndKeep();
    } catch (const std::exception&) {
      // A destructor cannot report it, and the library closes what is left. A host that must know
      // calls one of the two closes.
      handle_ = nullptr;
    }
  }

  // Bytes of the largest block.
  std::uint32_t blockSize() const noexcept { return blockSize_; }

  // Waits for the writer and returns the next block. The bytes stay valid until the next read or
  // until the Instance is destroyed. Returns nothing at the end of the data.
  std::optional<std::string_view> read() {
    buffer_.resize(blockSize_);
    const std::optional<std::uint32_t> length = read(buffer_.data(), buffer_.size());
    if (!length) return std::nullopt;
    return std::string_view(buffer_.data(), *length);
  }
  // The same into the host's buffer of `size` bytes. Returns the number of bytes read. Throws
  // std::length_error if the buffer is smaller than blockSize().
  std::optional<std::uint32_t> read(void* buffer, std::size_t size) {
    if (size < blockSize_) throw std::length_error("the buffer is smaller than a block");
    TallowReadBlock block{};
    block.instanceHandle = handle_;
    block.dataBuffer = buffer;
    if (send(module_->entry_, pmiPIDMOptRead, &block, pmrcEOF) == pmrcEOF) {
      sawEnd_ = true;
      return std::nullopt;
    }
    const std::uint32_t length = block.dataLength;  // the field is not aligned
    return length;
  }

  // Takes a checkpoint and returns its position: the number of the last block delivered, 0 before
  // the first.
  std::uint64_t getPos() {
    TallowPositionBlock block{};
    block.instanceHandle = handle_;
    send(module_->entry_, pmiPIDMOptGetPos, &block);
    std::uint64_t position = 0;
    std::memcpy(&position, block.position, sizeof position);
    return position;
  }
  // Goes back to a position that getPos() has returned: the next read delivers the block of that
  // number again. In a new process it returns when the writer has sent all data up to there again.
  // Throws Error if the module cannot go back to it.
  void setPos(std::uint64_t position) {
    TallowPositionBlock block{};
    block.instanceHandle = handle_;
    block.positionLength = TALLOW_POSITION_SIZE;
    block.position = &position;
    send(module_->entry_, pmiPIDMOptSetPos, &block);
  }

  // Closes the pipe. After the end of the data the module deletes the fallback file here, so record
  // before the call that the job is done. Does nothing if the pipe is closed already.
  void close() { sendClose(pmiPIDMOptClose); }

  // Closes the pipe and keeps the fallback file in any case: for a job whose writer died. Does
  // nothing if the pipe is closed already.
  void closeAndKeep() {
    if (handle_ == nullptr) return;
    // Before the end of the data the module keeps it anyway.
    if (!sawEnd_ || module_->keepsFiles_ == "YES") return sendClose(pmiPIDMOptCloseR);
    module_->putAttribute("PRESERVE_RESTART_INFO", "YES");
    try {
      sendClose(pmiPIDMOptCloseR);
    } catch (...) {
      module_->putAttribute("PRESERVE_RESTART_INFO", module_->keepsFiles_);
      throw;
    }
    module_->putAttribute("PRESERVE_RESTART_INFO", module_->keepsFiles_);
  }

 private:
  friend class Module;
  Instance(Module& module, void* handle, std::uint32_t blockSize) noexcept
      : module_(&module), handle_(handle), blockSize_(blockSize) {}

  void sendClose(std::uint32_t request) {
    if (handle_ == nullptr) return;
    TallowCloseBlock block{};
    // The handle is invalid from here on, whatever the return code is.
    block.instanceHandle = std::exchange(handle_, nullptr);
    send(module_->entry_, request, &block);
  }

  Module* module_;
  void* handle_;
  std::uint32_t blockSize_;
  bool sawEnd_ = false;
  std::vector<char> buffer_;  // of the read that has none of the host's
};

inline Instance Module::open(const std::string& pipeName) {
  if (pipeName.size() >= TALLOW_PIPE_NAME_SIZE) {
    throw std::length_error("the pipe name is too long");
  }
  const auto block = std::make_unique<TallowOpenBlock>();
  block->moduleHandle = handle_;
  block->openMode = TALLOW_OPEN_FOR_READING;
  block->pipeNameLength = static_cast<std::uint16_t>(pipeName.size());
  std::memcpy(block->pipeName, pipeName.data(), pipeName.size());
  send(entry_, pmiPIDMOptOpen, block.get());
  return {*this, block->instanceHandle, block->blockSize};
}

}  // namespace tallow
