// One fuzz target per file: TALLOW_FUZZ_TARGET(name) { … } with `data` and `size`, returning 0.
//
// With libFuzzer each file becomes one program (scripts/fuzz). Everywhere else all of them are
// linked into one test, which replays the saved inputs of corpus/name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace tallow::fuzz {

using Target = int (*)(const std::uint8_t* data, std::size_t size);

// Registers the target under its name for the replay.
struct Registration {
  Registration(const char* name, Target target);
};

// Ends the program if it does not hold: this is how both kinds of run report a finding.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// An input that is read from its front. After its end it gives zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  bool empty() const { return rest_.empty(); }
  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto value = static_cast<std::uint8_t>(rest_.front());
    rest_.remove_prefix(1);
    return value;
  }
  std::uint64_t number(int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= std::uint64_t{byte()} << (8 * i);
    return value;
  }
  std::string_view text(std::size_t length) {
    const std::string_view taken = rest_.substr(0, length);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  std::string_view rest() { return text(rest_.size()); }

 private:
  std::string_view rest_;
};

}  // namespace tallow::fuzz

#ifdef TALLOW_LIBFUZZER
#define TALLOW_FUZZ_TARGET(name) \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
#else
#define TALLOW_FUZZ_TARGET(name)                                                    \
  static int run_##name(const std::uint8_t* data, std::size_t size);                \
  static const tallow::fuzz::Registration kRegistration_##name(#name, &run_##name); \
  static int run_##name(const std::uint8_t* data, std::size_t size)
#endif
