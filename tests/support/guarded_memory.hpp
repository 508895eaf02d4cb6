// Memory that shows what a callee did to it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace tallow::test {

// Bytes first to first + count - 1 of a block.
struct ByteRange {
  std::size_t first;
  std::size_t count;
};

// A block of `size` bytes, filled with a pattern, whose last byte is the last byte before a page
// that cannot be touched. The rest of its own pages, before the block, holds the pattern too.
class GuardedMemory {
 public:
  explicit GuardedMemory(std::size_t size);
  ~GuardedMemory();
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;

  std::uint8_t* data() const { return data_; }
  std::size_t size() const { return size_; }

  template <typename T>
  void put(std::size_t offset, const T& value) {
    putBytes(offset, &value, sizeof(value));
  }
  void putBytes(std::size_t offset, const void* bytes, std::size_t count);

  template <typename T>
  T get(std::size_t offset) const {
    T value;
    getBytes(offset, &value, sizeof(value));
    return value;
  }
  void getBytes(std::size_t offset, void* bytes, std::size_t count) const;

  // Remembers every byte as it is now.
  void remember();
  // The offsets of the bytes that differ from what was remembered and lie in none of `writable`, as
  // a text for a failure; offsets before the block are negative. Empty when there are none.
  std::string changesOutside(std::span<const ByteRange> writable) const;

 private:
  std::uint8_t* pages_;
  std::size_t room_;  // bytes from pages_ to the guard page
  std::uint8_t* data_;
  std::size_t size_;
  std::vector<std::uint8_t> before_;
};

}  // namespace tallow::test
