#include "memory_count.hpp"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "support/import_hook.hpp"

namespace tallow::test {
namespace {

std::atomic<long> held{0};

void* counted(void* block) {
  if (block != nullptr) ++held;
  return block;
}

void* countedMalloc(std::size_t size) {
  return counted(std::malloc(size));
}

void* countedCalloc(std::size_t count, std::size_t size) {
  return counted(std::calloc(count, size));
}

void* countedRealloc(void* block, std::size_t size) {
  void* moved = std::realloc(block, size);
  if (block == nullptr) return counted(moved);
  if (size == 0) --held;
  return moved;
}

char* countedDuplicate(const char* text) {
  char* copy = _strdup(text);
  counted(copy);
  return copy;
}

void countedFree(void* block) {
  if (block != nullptr) --held;
  std::free(block);
}

template <class Function>
void replace(HMODULE module, const char* name, Function* function) {
  if (importsFunction(module, name)) {
    replaceImport(module, name, reinterpret_cast<void*>(function));
  }
}

}  // namespace

void installMemoryCount(HMODULE module) {
  replace(module, "malloc", countedMalloc);
  replace(module, "calloc", countedCalloc);
  replace(module, "realloc", countedRealloc);
  replace(module, "_strdup", countedDuplicate);
  replace(module, "free", countedFree);
}

long blocksHeld() {
  return held;
}

}  // namespace tallow::test
