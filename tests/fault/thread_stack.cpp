#include "thread_stack.hpp"

#include <cstdio>

namespace tallow::test {
namespace {

constexpr int kDeepest = 48;  // calls

// The base of the image that contains the address; null if none does.
const unsigned char* imageOf(DWORD64 address) {
  MEMORY_BASIC_INFORMATION region = {};
  if (VirtualQuery(reinterpret_cast<void*>(address), &region, sizeof region) == 0 ||
      region.Type != MEM_IMAGE) {
    return nullptr;
  }
  return static_cast<const unsigned char*>(region.AllocationBase);
}

// The name in the image's export table. Only the loader knows the file's name, and to ask it takes
// its lock.
const char* nameOf(const unsigned char* image) {
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(image + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (directory.VirtualAddress == 0) return "program";
  const auto* exports =
      reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(image + directory.VirtualAddress);
  return reinterpret_cast<const char*>(image + exports->Name);
}

// Moves to the caller; false if there is none.
bool leaveCall(CONTEXT& context) {
  DWORD64 base = 0;
  auto* const function = RtlLookupFunctionEntry(context.Rip, &base, nullptr);
  if (function == nullptr) {  // it calls nothing itself: its return address is on top
    context.Rip = *reinterpret_cast<const DWORD64*>(context.Rsp);
    context.Rsp += sizeof context.Rip;
    return true;
  }
  void* handlerData = nullptr;
  DWORD64 frame = 0;
  RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, context.Rip, function, &context, &handlerData, &frame,
                   nullptr);
  return context.Rip != 0;
}

}  // namespace

void printStack(HANDLE thread) {
  if (SuspendThread(thread) == static_cast<DWORD>(-1)) return;
  CONTEXT context = {};
  context.ContextFlags = CONTEXT_FULL;
  if (GetThreadContext(thread, &context)) {
    for (int depth = 0; depth < kDeepest; ++depth) {
      const unsigned char* const image = imageOf(context.Rip);
      if (image == nullptr) {
        std::fprintf(stderr, "  %016llx\n", context.Rip);
        break;
      }
      std::fprintf(stderr, "  %s+0x%llx\n", nameOf(image),
                   context.Rip - reinterpret_cast<DWORD64>(image));
      if (!leaveCall(context)) break;
    }
  }
  ResumeThread(thread);
}

}  // namespace tallow::test
