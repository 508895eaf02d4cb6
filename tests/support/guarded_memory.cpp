#include "support/guarded_memory.hpp"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace tallow::test {
namespace {

constexpr std::size_t kPage = 4096;

std::uint8_t patternAt(std::size_t index) {
  return static_cast<std::uint8_t>(0xa5 ^ (index * 31) ^ (index >> 8));
}

}  // namespace

GuardedMemory::GuardedMemory(std::size_t size)
    : room_((size + kPage) / kPage * kPage), size_(size) {
  pages_ = static_cast<std::uint8_t*>(
      VirtualAlloc(nullptr, room_ + kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
  if (pages_ == nullptr) throw std::bad_alloc();
  DWORD protection = 0;
  VirtualProtect(pages_ + room_, kPage, PAGE_NOACCESS, &protection);
  for (std::size_t i = 0; i < room_; ++i) pages_[i] = patternAt(i);
  data_ = pages_ + room_ - size;
  remember();
}

GuardedMemory::~GuardedMemory() {
  VirtualFree(pages_, 0, MEM_RELEASE);
}

void GuardedMemory::putBytes(std::size_t offset, const void* bytes, std::size_t count) {
  if (count != 0) std::memcpy(data_ + offset, bytes, count);
}

void GuardedMemory::getBytes(std::size_t offset, void* bytes, std::size_t count) const {
  if (count != 0) std::memcpy(bytes, data_ + offset, count);
}

void GuardedMemory::remember() {
  before_.assign(pages_, pages_ + room_);
}

std::string GuardedMemory::changesOutside(std::span<const ByteRange> writable) const {
  std::string changes;
  if (std::memcmp(pages_, before_.data(), room_) == 0) return changes;
  const std::size_t front = room_ - size_;
  for (std::size_t i = 0; i < room_; ++i) {
    if (pages_[i] == before_[i]) continue;
    const bool allowed = i >= front && std::ranges::any_of(writable, [&](const ByteRange& range) {
                           return i - front >= range.first && i - front - range.first < range.count;
                         });
    if (!allowed) {
      changes += ' ' + std::to_string(static_cast<long long>(i) - static_cast<long long>(front));
    }
    if (changes.size() > 200) return changes + " …";
  }
  return changes;
}

}  // namespace tallow::test
