// The module's MD5 and, in the native build, that of another library.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <iterator>
#include <vector>

#include "fallback/md5.hpp"
#ifdef TALLOW_WITH_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

using tallow::fallback::Md5Digest;

std::vector<std::uint8_t> sampleData(std::size_t size) {
  std::vector<std::uint8_t> data(size);
  std::uint32_t value = 1;
  for (std::uint8_t& byte : data) {
    value = value * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(value >> 24);
  }
  return data;
}

Md5Digest hashOurs(const std::vector<std::uint8_t>& data) {
  tallow::fallback::Md5Context context;
  tallow::fallback::md5Init(context);
  tallow::fallback::md5Update(context, data.data(), data.size());
  return tallow::fallback::md5Final(context);
}

// The counter `fastest` is the time of the quickest run, which nothing else slowed down.
void ours(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  const std::vector<std::uint8_t> data = sampleData(static_cast<std::size_t>(state.range(0)));
  auto fastest = Clock::duration::max();
  while (state.KeepRunning()) {
    const Clock::time_point start = Clock::now();
    benchmark::DoNotOptimize(hashOurs(data));
    fastest = std::min(fastest, Clock::now() - start);
  }
  state.counters["fastest"] = std::chrono::duration<double>(fastest).count();
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ours)->Arg(1 << 20);

#ifdef TALLOW_WITH_OPENSSL
Md5Digest hashOpenSsl(const std::vector<std::uint8_t>& data) {
  Md5Digest digest;
  EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_md5(), nullptr);
  return digest;
}

void openSsl(benchmark::State& state) {
  const std::vector<std::uint8_t> data = sampleData(static_cast<std::size_t>(state.range(0)));
  while (state.KeepRunning()) benchmark::DoNotOptimize(hashOpenSsl(data));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(openSsl)->Arg(1 << 20);

// Both take turns and are measured in processor time, so that other load on the machine slows
// neighbours down equally. The counter `ratio` is the median of our speed against the other's.
void oursAgainstOpenSsl(benchmark::State& state) {
  const std::vector<std::uint8_t> data = sampleData(static_cast<std::size_t>(state.range(0)));
  const auto time = [&data](auto hash) {
    const std::clock_t start = std::clock();
    benchmark::DoNotOptimize(hash(data));
    return static_cast<double>(std::clock() - start);
  };
  std::vector<double> ratios;
  while (state.KeepRunning()) {
    const double own = time(hashOurs);
    ratios.push_back(time(hashOpenSsl) / own);
  }
  std::nth_element(ratios.begin(), ratios.begin() + std::ssize(ratios) / 2, ratios.end());
  state.counters["ratio"] = ratios[ratios.size() / 2];
}
BENCHMARK(oursAgainstOpenSsl)->Arg(1 << 20)->Iterations(300);
#endif

}  // namespace

BENCHMARK_MAIN();
