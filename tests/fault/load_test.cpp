// The start and the end of the library, which must leave nothing behind and must not end the host.
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include "memory_count.hpp"
#include "support/host.hpp"
#include "support/import_hook.hpp"
#include "support/surroundings.hpp"
#include "system_libraries.hpp"

namespace tallow::test {
namespace {

class Load : public testing::Test {
 protected:
  static void SetUpTestSuite() { keepSystemLibraries(); }

  ScopedEnvironment noLogDirectory{"NPLOGDIR", std::nullopt};

  static const LoadWatch& counting() {
    static const LoadWatch watch([](HMODULE library) {
      if (importsFunction(library, "LoadStringA")) installMemoryCount(library);
    });
    return watch;
  }
};

TEST_F(Load, GivesBackAllMemoryAndHandlesAtUnload) {
  counting();
  {
    const Module firstOne;
  }  // loads the libraries that stay loaded
  const std::size_t handles = openHandles();
  const long blocks = blocksHeld();
  {
    const Module module;
    Host host(module);
    EXPECT_EQ(host.init("Block_size=64").code, pmrcSuccess);
    EXPECT_EQ(host.open("no pipe").code, pmrcFailed);
    EXPECT_GT(blocksHeld(), blocks);
  }
  EXPECT_EQ(blocksHeld(), blocks);
  EXPECT_EQ(openHandles(), handles);
}

TEST_F(Load, TakesNoThreadLocalSlot) {
  const DWORD before = TlsAlloc();
  TlsFree(before);
  const Module module;
  const DWORD after = TlsAlloc();
  TlsFree(after);
  EXPECT_EQ(after, before);
}

TEST_F(Load, IsRefusedAndNotTheHostsEndWhenThereIsNoMemory) {
  const LoadWatch watch([](HMODULE library) {
    if (!importsFunction(library, "LoadStringA")) return;
    replaceImport(library, "malloc", reinterpret_cast<void*>(+[](std::size_t) -> void* {
                    errno = ENOMEM;
                    return nullptr;
                  }));
  });
  EXPECT_THROW(Module(), std::runtime_error);
}

TEST_F(Load, NeverTakesTheModuleForItsLanguageLibrary) {
  const LoadWatch watch([](HMODULE library) {
    if (!importsFunction(library, "LoadStringA")) return;
    replaceImport(library, "GetLocaleInfoA",
                  reinterpret_cast<void*>(+[](LCID, LCTYPE, char*, int) { return 0; }));
  });
  {
    const Module module;
    Host host(module);
    const Answer answer = host.open("");
    EXPECT_NE(answer.text, "");
  }
  EXPECT_EQ(GetModuleHandleA("tallowin.dll"), nullptr);
}

TEST_F(Load, KeepsNothingOfThreadsThatItRefused) {
  counting();
  const Module module;
  Host host(module);
  const long blocks = blocksHeld();
  for (int i = 0; i < 20; ++i) {
    std::jthread([&] { EXPECT_EQ(host.id().code, pmrcFailed); }).join();
  }
  EXPECT_EQ(blocksHeld(), blocks);
}

}  // namespace
}  // namespace tallow::test
