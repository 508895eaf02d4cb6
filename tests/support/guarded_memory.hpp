// Memory that shows how a callee changed it.
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

// A block of `size` bytes that ends directly before a page that cannot be accessed. The block and
// the part of its pages before it are filled with a pattern.
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
  // The offsets of the bytes that have changed since remember() and are in none of `writable`, as a
  // text for a failure. Offsets before the block are negative. Empty if there are none.
  std::string changesOutside(std::span<const ByteRange> writable) const;

 private:
  std::uint8_t* pages_;
  std::size_t room_;  // bytes from pages_ to the guard page
  std::uint8_t* data_;
  std::size_t size_;
  std::vector<std::uint8_t> before_;
};

}  // namespace tallow::test
